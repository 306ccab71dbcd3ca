#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kcos/class.h"
#include "ki/TypeAwareKalvexManagedConstructInfo.h"
#include "ki/detail/Parameter.h"

namespace bigdata::ki::detail {

/// Ends the process if the number of inputs differs from the signature. The host checks counts
/// before it calls, so a mismatch is a fault of the host and not an error of the language.
void assertInputCount(int nrhs, std::size_t expected);

void fillSignature(kcos::COSMethodSignature& signature, std::size_t inputs, std::size_t outputs);

/// Turns the result of a bound member into outputs: one, or one per element of a tuple.
template <class Result>
struct Outputs {
  static constexpr std::size_t kCount = 1;

  static void store(Result&& result, int& nlhs, kcos::COSValue* lhs) {
    lhs[0].array = matrix::to_kalvex(toArray(std::forward<Result>(result)));
    nlhs = 1;
  }
};

template <class... R>
struct Outputs<std::tuple<R...>> {
  static constexpr std::size_t kCount = sizeof...(R);

  static void store(std::tuple<R...>&& result, int& nlhs, kcos::COSValue* lhs) {
    std::array<ArrayPtr, kCount> arrays = std::apply(
        [](R&... values) {
          return std::array<ArrayPtr, kCount>{toArray(std::forward<R>(values))...};
        },
        result);
    const int count = std::min(static_cast<int>(kCount), std::max(nlhs, 1));
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
      lhs[i].array = matrix::to_kalvex(std::move(arrays[i]));
    }
    nlhs = count;
  }
};

template <>
struct Outputs<void> {
  static constexpr std::size_t kCount = 0;
};

/// A method of the native class `T`: a member function, or a function whose first parameter is
/// `T&`. The object is the first input.
template <class T, class Callable, class Result, class... P>
class FixedTypeCosMethodInfo final : public kcos::COSMethodBase {
 public:
  FixedTypeCosMethodInfo(kcos::COSInternedBase name, Callable callable, kcos::MemberAccess access)
      : COSMethodBase(name, access), callable_(callable) {}

  void getMethodSignature(kcos::COSMethodSignature& signature) const override {
    fillSignature(signature, 1 + sizeof...(P), Outputs<Result>::kCount);
  }

  void invoke(const kcos::COSClient* /*client*/, int& nlhs, [[maybe_unused]] kcos::COSValue* lhs,
              int nrhs, const kcos::COSValue* rhs) const override {
    assertInputCount(nrhs, 1 + sizeof...(P));
    Parameters<P...> parameters(rhs + 1);
    const auto object = fromArray<KalvexManagedPtr<T>>(rhs[0].array);
    if constexpr (std::is_void_v<Result>) {
      parameters.passTo(callable_, *object);
    } else {
      Outputs<Result>::store(parameters.passTo(callable_, *object), nlhs, lhs);
    }
  }

  bool takesObjectFirst() const override { return true; }

 private:
  Callable callable_;
};

/// A constructor of the native class `T` with inputs of fixed types. The new host object is
/// returned in the first output.
template <class T, class... P>
class FixedTypeCosConstructorInfo final : public kcos::COSMethodBase {
 public:
  using Function = std::function<std::unique_ptr<T>(const KalvexManagedConstructInfo&, P...)>;

  FixedTypeCosConstructorInfo(kcos::COSInternedBase name, Function function,
                              kcos::MemberAccess access)
      : COSMethodBase(name, access), function_(std::move(function)) {}

  void getMethodSignature(kcos::COSMethodSignature& signature) const override {
    fillSignature(signature, sizeof...(P), 1);
  }

  void invoke(const kcos::COSClient* /*client*/, int& /*nlhs*/, kcos::COSValue* lhs, int nrhs,
              const kcos::COSValue* rhs) const override {
    assertInputCount(nrhs, sizeof...(P));
    const kcos::COSInterfacePtr object = kcos::omGetArrayElement(lhs[0].array, 0);
    TypeAwareKalvexManagedConstructInfo<T> info(object);
    Parameters<P...> parameters(rhs);
    std::unique_ptr<T> made =
        parameters.passTo(function_, static_cast<const KalvexManagedConstructInfo&>(info));
    info.release();
    static_cast<void>(made.release());  // the host object owns it now
  }

  bool takesObjectFirst() const override { return false; }

 private:
  Function function_;
};

}  // namespace bigdata::ki::detail
