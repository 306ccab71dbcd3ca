#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "ki/KalvexManagedPtr.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/Operation.h"

namespace bigdata::lazyeval {

/// Makes an operation with the host constructor of its class and `inputs` in the given order.
/// Errors: those of the constructor; "KALVEX:validateattributes:invalidType" if it returns anything
///         but an operation.
inline ki::KalvexManagedPtr<Operation> makeOperationFrom(kcos::NameRef className,
                                                         std::span<const kxArray* const> inputs) {
  return ki::fromArray<ki::KalvexManagedPtr<Operation>>(ki::callHost(className, inputs).get());
}

/// The same, with inputs of any types that have a conversion.
template <class... Inputs>
ki::KalvexManagedPtr<Operation> makeOperation(kcos::NameRef className, Inputs&&... inputs) {
  const std::array<matrix::ArrayPtr, sizeof...(Inputs)> owned = {
      ki::toArray(std::forward<Inputs>(inputs))...};
  std::array<const kxArray*, sizeof...(Inputs)> list;
  std::ranges::transform(owned, list.begin(), &matrix::ArrayPtr::get);
  return makeOperationFrom(className, list);
}

}  // namespace bigdata::lazyeval
