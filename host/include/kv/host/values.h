#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kcos/calls.h"
#include "kcos/interface.h"
#include "kx/array.h"
#include "kx/string.h"

/// Making, reading and passing host values from C++, for code that lives in the host: language
/// classes and front ends. All functions work in the current session.
namespace kv::host {

using Value = matrix::ArrayPtr;

/// A raw call: counts and lists. Outputs are null at the start and owned by the caller afterwards.
struct Call {
  int nlhs;
  kxArray** plhs;
  int nrhs;
  const kxArray* const* prhs;

  /// Input `index`; null after the last one.
  const kxArray* in(int index) const { return index < nrhs ? prhs[index] : nullptr; }
  /// Sets output `index`, if there is room for it; otherwise the value is dropped.
  void out(int index, Value value) const {
    if (index < (nlhs > 1 ? nlhs : 1)) {
      matrix::from_kalvex(plhs[index]);
      plhs[index] = value.release();
    }
  }
  /// Refuses counts outside the bounds: outputs, too many inputs, too few inputs.
  /// Errors: "KALVEX:TooManyOutputs", "KALVEX:TooManyInputs", "KALVEX:NotEnoughInputs".
  KV_HOST_API void expect(int maxOutputs, int minInputs, int maxInputs) const;
};

/// The body of a function or method. A method finds the object as its first input.
using NativeBody = std::function<void(const Call&)>;

// Making values.

inline Value makeDouble(double value) { return matrix::from_kalvex(kxCreateDoubleScalar(value)); }
inline Value makeLogical(bool value) { return matrix::from_kalvex(kxCreateLogicalScalar(value)); }
inline Value makeString(std::string_view utf8) { return matrix::create(utf8); }
inline Value makeChars(std::string_view utf8) { return matrix::createChars(utf8); }
inline Value makeEmptyDouble() { return matrix::from_kalvex(kxCreateDoubleMatrix(0, 0, 0)); }
KV_HOST_API Value makeCell(std::vector<Value> elements);                ///< 1-by-n
KV_HOST_API Value makeStringColumn(std::span<const std::string> utf8);  ///< n-by-1 string array
KV_HOST_API Value makeStringRow(std::span<const std::string> utf8);     ///< 1-by-n string array

/// A handle of a named function.
KV_HOST_API Value makeFunctionHandle(std::string_view name);
/// A handle of a native callable; `name` is its name in stacks and messages.
KV_HOST_API Value makeFunctionHandle(std::string_view name, NativeBody body);

// Reading values.
// Each raises "KALVEX:validateattributes:invalidType" with "Input", what was expected, what came.

KV_HOST_API double toDouble(const kxArray* value);
KV_HOST_API bool toLogical(const kxArray* value);
/// A whole number from 0 to `limit`; NaN and fractions are refused.
/// Errors: also "KALVEX:CountTooLarge" with count and limit.
KV_HOST_API std::size_t toCount(const kxArray* value, std::size_t limit);
/// A char row, a string scalar; UTF-8.
KV_HOST_API std::string toText(const kxArray* value);
/// A string array, a char row, a cell of texts.
KV_HOST_API std::vector<std::string> toTexts(const kxArray* value);

/// The name that a function handle refers to; empty for a handle of a callable.
KV_HOST_API std::string functionName(const kxArray* handle);
/// The name, in stacks and messages, of the function or callable that a handle refers to.
KV_HOST_API std::string callableName(const kxArray* handle);
/// The callable that a handle refers to; null for a handle of a named function and for other
/// values. A front end recognises its own by the type of the target. Lives: as long as the array.
KV_HOST_API const NativeBody* callableBody(const kxArray* handle) noexcept;

/// False for an object or a function handle that was loaded without trust.
KV_HOST_API bool isTrusted(const kxArray* value) noexcept;
/// Refuses an object or a function handle that was loaded without trust; `what` is the name of what
/// was to be evaluated. Anything else is accepted. Errors: "KALVEX:load:NotTrusted" with `what`.
KV_HOST_API void requireTrusted(const kxArray* value, std::string_view what);

// Calls.

/// Calls by name with one output.
KV_HOST_API Value call(kcos::NameRef name, std::span<const kxArray* const> inputs);
inline Value call(kcos::NameRef name, std::initializer_list<const kxArray*> inputs = {}) {
  return call(name, std::span(inputs.begin(), inputs.size()));
}
/// Calls by name with `nlhs` outputs; those not written are null.
KV_HOST_API std::vector<Value> callMany(kcos::NameRef name, int nlhs,
                                        std::span<const kxArray* const> inputs);

/// True if a library defined a function or builtin of that name: a program that defines another one
/// replaces that of the library.
KV_HOST_API bool isLibraryFunction(std::string_view name);

/// Property of a scalar object, by the rights of public code.
KV_HOST_API Value getProperty(const kxArray* object, kcos::NameRef name);

// Objects of language classes.
// For bodies of the class: property slots by name with the class's own rights, and the C++ value
// that an object may own.

KV_HOST_API Value getSlot(const kxArray* object, kcos::NameRef name);
KV_HOST_API void setSlot(const kxArray* object, kcos::NameRef name, Value value);

/// Base of C++ values that objects of language classes own. Destroyed with the object; it must not
/// refer to host objects other than through the object's slots.
class KV_HOST_API NativeValue {
 public:
  virtual ~NativeValue();
};

/// Passes the ownership of a C++ value to a scalar object, replacing the one it had.
KV_HOST_API void setNativeValue(const kxArray* object, std::unique_ptr<NativeValue> value);
/// The C++ value of a scalar object, or null. Lives: as long as the object, until replaced.
/// Errors: "KALVEX:class:InvalidHandle" for a deleted object.
KV_HOST_API NativeValue* getNativeValue(const kxArray* object);

/// The C++ value as a `T`.
/// Errors: "KALVEX:validateattributes:invalidType" with "Input", `expected`, the class of `object`.
template <class T>
T& nativeValue(const kxArray* object, std::string_view expected);

[[noreturn]] KV_HOST_API void raiseInvalidType(std::string_view role, std::string_view expected,
                                               const kxArray* came);

template <class T>
T& nativeValue(const kxArray* object, std::string_view expected) {
  auto* value = dynamic_cast<T*>(kcos::omIsKCOS(object) ? getNativeValue(object) : nullptr);
  if (value == nullptr) {
    raiseInvalidType("Input", expected, object);
  }
  return *value;
}

}  // namespace kv::host
