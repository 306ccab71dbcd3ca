#pragma once

#include <concepts>
#include <memory>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "kv/value.h"

namespace kv {

/// Where in the user's code a call stands; captured by default arguments.
using Where = std::source_location;

/// An array that has been recorded and not computed: a thin handle; copies refer to the same array.
///
/// Only the first dimension is long. Operations on arrays of one source, filtered alike, go row by
/// row; an aggregate has one row and combines with everything.
///
/// Threads: those of its session; a handle may be dropped on any.
/// Lives: may outlive the session; operations on it then raise Error "KALVEX:session:Closed".
class Array {
 public:
  struct Handle;

  explicit Array(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}

  /// Type of the elements: "double", "single", "int8" ... "uint64", "logical", "string".
  std::string_view type() const;

  /// Evaluates this array alone.
  /// Errors: see Session::gather.
  Value gather(Where where = Where::current()) const;

  const Handle& handle() const { return *handle_; }

 private:
  std::shared_ptr<const Handle> handle_;
};

/// A number in code; not `bool`, which is a logical, and not a character.
template <class T>
concept Number = std::floating_point<T> ||
                 (std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>);

/// An input of an operation: an array, a number, a logical or a text, with the user's line.
/// Operators take it so that the line is captured where the expression stands.
///
/// Numbers are doubles, and as constants they adapt to the type of the column that they meet.
/// Errors: Error "KALVEX:array:NotExact" for an integer that a double can't hold.
class Operand {
 public:
  // NOLINTBEGIN(google-explicit-constructor): conversions are the purpose
  Operand(const Array& array, Where where = Where::current()) : value_(array), where_(where) {}
  template <Number T>
  Operand(T number, Where where = Where::current()) : value_(exact(number)), where_(where) {}
  Operand(std::same_as<bool> auto logical, Where where = Where::current())
      : value_(logical), where_(where) {}
  Operand(const char* text, Where where = Where::current())
      : value_(std::string(text)), where_(where) {}
  Operand(std::string text, Where where = Where::current())
      : value_(std::move(text)), where_(where) {}
  // NOLINTEND(google-explicit-constructor)

  const std::variant<Array, double, bool, std::string>& value() const { return value_; }
  const Where& where() const { return where_; }

 private:
  static double exact(std::floating_point auto number) { return static_cast<double>(number); }
  static double exact(std::signed_integral auto number) { return exactInteger(number); }
  static double exact(std::unsigned_integral auto number) { return exactUnsigned(number); }
  static double exactInteger(long long number);
  static double exactUnsigned(unsigned long long number);

  std::variant<Array, double, bool, std::string> value_;
  Where where_;
};

}  // namespace kv
