#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kcos/class.h"
#include "ki/KalvexManagedObject.h"
#include "ki/conversions.h"

namespace bigdata::ki::detail {

/// How a parameter of type `P` is stored between its conversion and the call of the bound member.
template <class P>
struct Parameter {
  using Held = std::remove_cvref_t<P>;
  static P&& pass(Held& held) { return static_cast<P&&>(held); }
};

/// A managed class by reference: not null and not deleted.
template <class T>
  requires std::derived_from<T, KalvexManagedObject>
struct Parameter<const T&> {
  using Held = ManagedReference<T>;
  static const T& pass(const Held& held) { return *held.target; }
};

/// The converted inputs of a bound member with parameters `P...`.
template <class... P>
class Parameters {
 public:
  static constexpr std::size_t kCount = sizeof...(P);

  /// Converts from the last input to the first, so the error is that of the last bad input.
  explicit Parameters(const kcos::COSValue* inputs) {
    readBackwards(inputs, std::make_index_sequence<kCount>());
  }

  /// Calls `function` with `leading` arguments, then the inputs, which are moved.
  template <class Function, class... Leading>
  decltype(auto) passTo(const Function& function, Leading&&... leading) {
    return std::apply(
        [&](auto&... held) -> decltype(auto) {
          return std::invoke(function, std::forward<Leading>(leading)...,
                             Parameter<P>::pass(held)...);
        },
        held_);
  }

 private:
  template <std::size_t... Index>
  void readBackwards([[maybe_unused]] const kcos::COSValue* inputs, std::index_sequence<Index...>) {
    (read<kCount - 1 - Index>(inputs), ...);
  }

  template <std::size_t Index>
  void read(const kcos::COSValue* inputs) {
    auto& held = std::get<Index>(held_);
    held = fromArray<std::remove_cvref_t<decltype(held)>>(inputs[Index].array);
  }

  std::tuple<typename Parameter<P>::Held...> held_;
};

}  // namespace bigdata::ki::detail
