#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "kv/value.h"

namespace kv {

/// The position of a call in the user's code; captured by default arguments.
using Where = std::source_location;

/// An array that is recorded but not computed: a thin handle. Copies refer to the same array.
///
/// Only the first dimension is long. Operations on arrays of one source with the same filters work
/// row by row. An aggregate has one row and can be combined with any array.
///
/// Lives:   may outlive the session; operations on it then raise Error "KALVEX:session:Closed".
/// Threads: those of its session; a handle may be dropped on any.
class Array {
 public:
  struct Handle;

  explicit Array(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}

  /// Type of the elements: "double", "single", "int8" ... "uint64", "logical", "string".
  std::string_view type() const;

  /// The number of rows, if it is known: from the source, or because an evaluation has counted
  /// them.
  std::optional<std::int64_t> rows() const;

  /// The dimensions after that of rows: {} for a column, {3} for an n-by-3 array.
  const std::vector<std::int64_t>& trailing() const;

  /// True if it has one row, which goes with any rows: a constant, an aggregate, and what was
  /// computed from these alone.
  bool isScalar() const;

  /// True for a column of a table, and for what was computed from one. Front ends whose arrays
  /// propagate missing values let columns skip them.
  bool isColumn() const;

  /// Evaluates this array alone.
  /// Errors: see Session::gather.
  Value gather(Where where = Where::current()) const;

  const Handle& handle() const { return *handle_; }

 private:
  std::shared_ptr<const Handle> handle_;
};

/// A number in code: neither `bool`, which is a logical, nor a character.
template <class T>
concept Number = std::floating_point<T> ||
                 (std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>);

/// An input of an operation: an array, a number, a logical or a text, with the user's line.
/// Operators take it so that the line is captured where the expression is written.
///
/// Numbers written as constants adapt to the type of the array with which they are combined, as
/// Python's scalars do in NumPy: an int8 array times 2 is int8, times 2.0 double. Computed values
/// never adapt.
class Operand {
 public:
  // NOLINTBEGIN(google-explicit-constructor): conversions are the purpose
  Operand(const Array& array, Where where = Where::current()) : value_(array), where_(where) {}
  template <Number T>
  Operand(T number, Where where = Where::current()) : value_(widest(number)), where_(where) {}
  Operand(std::same_as<bool> auto logical, Where where = Where::current())
      : value_(logical), where_(where) {}
  Operand(const char* text, Where where = Where::current())
      : value_(std::string(text)), where_(where) {}
  Operand(std::string text, Where where = Where::current())
      : value_(std::move(text)), where_(where) {}
  // NOLINTEND(google-explicit-constructor)

  using Any = std::variant<Array, double, bool, std::string, std::int64_t, std::uint64_t>;

  const Any& value() const { return value_; }
  const Where& where() const { return where_; }

 private:
  static Any widest(std::floating_point auto number) { return static_cast<double>(number); }
  static Any widest(std::signed_integral auto number) { return static_cast<std::int64_t>(number); }
  static Any widest(std::unsigned_integral auto number) {
    if (std::in_range<std::int64_t>(number)) {
      return static_cast<std::int64_t>(number);
    }
    return static_cast<std::uint64_t>(number);
  }

  Any value_;
  Where where_;
};

}  // namespace kv
