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

/// How a parameter of type `P` of a bound member is kept between its conversion and the call.
template <class P>
struct Parameter {
  using Held = std::remove_cvref_t<P>;
  static P&& pass(Held& held) { return static_cast<P&&>(held); }
};

/// A managed class by reference: alive, and not null.
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

  /// Converts from the last input to the first: of two bad ones, the later is reported.
  explicit Parameters(const kcos::COSValue* inputs) {
    readBackwards(inputs, std::make_index_sequence<kCount>());
  }

  /// Calls `function` with `leading` arguments and the inputs, which are moved in.
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
