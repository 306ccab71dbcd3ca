#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "kv/runtime/Column.h"

namespace kv::runtime {

// Functions that work element by element: `plus`, `lt`, `sqrt` and the like.
//
// Types, NaN and division follow NumPy: integers wrap, x / 0 is Inf, 0 / 0 is NaN, and nothing
// traps. The differences are:
//
// 1. A comparison with NaN, a missing text or a missing time is false, also for `ne`, but not for
//    `differs`, which is true where `eq` is false.
// 2. There is no half precision: the mathematical functions of logical and 8-bit columns give
//    single.
// 3. `floor`, `ceil` and `round` don't change logical and integer columns.
// 4. A signed integer column is compared with a uint64 one in their common type, double.
// 5. A row computed from a missing integer or logical is missing, also that of a comparison: NaN if
//    it is floating, else a null. Exceptions are `isnan`, `ismissing` and `isfinite`, which answer
//    as for NaN; `where`, which is missing where its condition or the chosen side is; and `and` and
//    `or`, which are three-valued: false & missing is false, true | missing is true. The result is
//    nullable if an input is, except for the first three.
//
// 6. Moments and durations follow NumPy's datetime64 and timedelta64: the difference of two moments
//    is a duration, durations are added to moments and to each other, multiplied and divided by
//    numbers (towards zero), and divided by each other, which gives a double. The smaller and the
//    larger of two are missing if either is. What doesn't fit wraps, or is missing if it was
//    computed in double.
//
// Everything here may be used by several threads at once.

/// An input of an element function.
struct ColumnOperand {
  Column column;
  bool isScalar = false;  ///< a column of one row that applies to every row
  bool isWeak = false;  ///< a constant that the user wrote, of type Logical, Int64, UInt64, Double
                        ///< or String: a number adapts to the types with which it is combined,
                        ///< and a text to a moment or duration
};

/// The properties of an input on which the result type depends.
struct OperandType {
  ElementType type = ElementType::Double;
  bool isWeak = false;
};

/// An input as it is when a call is recorded: the type of a column, or a constant number. Unlike a
/// column of one row, it takes no memory of its own.
struct RecordedOperand {
  ElementType type = ElementType::Double;
  bool isWeak = false;     ///< as of a ColumnOperand
  std::uint64_t bits = 0;  ///< of a constant number: the element, in the first bytes
};

/// How a function determines its types.
enum class TypeRule : std::uint8_t {
  Promoted,    ///< computed and returned in the common type
  Counting,    ///< the same, but logical counts as int8
  Power,       ///< the same, and refuses negative exponents of integers
  Quotient,    ///< integers are computed in double
  Floating,    ///< integers of up to 16 bits are computed in single, larger ones in double
  Comparison,  ///< computed in the common type, returned as logical
  Truth,       ///< computed in logical: any value but zero is true, also NaN
  Class,       ///< computed in single or double, returned as logical
  Choice,      ///< of three, a logical condition chooses between the others, in their common type
               ///< (which is String for two texts)
};

/// A logical value that decides the result of a function of two, also if the other is missing.
enum class Deciding : std::uint8_t { None, False, True };

/// Computes `count` elements of a block.
///
/// `left` and `right` are elements of the computing type (`right` is null for a function of one
/// input), `output` of the result type; logical is one byte, 0 or 1.
/// Requires: the output overlaps no input.
using BlockKernel = void (*)(const void* left, const void* right, void* output, std::size_t count);

/// Which input of a block is a single element that applies to all.
enum class Spread : std::uint8_t { None, Left, Right };

/// Number of elements in a block, which stay in the innermost cache.
inline constexpr std::size_t kBlockElements = 4096;

inline constexpr std::size_t kNumericTypes = 11;  ///< numbers and logicals

/// The computing types of blocks: numbers, logicals, and whole microseconds, under Duration.
inline constexpr std::size_t kBlockTypes = kNumericTypes + 1;

/// The block functions of an element function by computing type and spread; null if there is none.
using BlockTable = std::array<std::array<BlockKernel, 3>, kBlockTypes>;

/// Computes all rows of text inputs into `output`, one byte per row.
using TextFunction = void (*)(std::span<const ColumnOperand> inputs, std::int64_t rows,
                              std::uint8_t* output);

/// One row of the table of element functions.
struct ElementFunction {
  std::string_view name;
  std::string_view symbol;  ///< its operator in a formula; empty if it has none
  std::size_t arity;
  TypeRule rule;
  const BlockTable* blocks;  ///< null for a choice
  TextFunction text;         ///< null if it isn't defined for texts, and for a choice
  std::string_view summary;
  Deciding deciding = Deciding::None;

  /// True if some of its inputs may be texts. A choice passes them on.
  bool takesTexts() const { return text != nullptr || rule == TypeRule::Choice; }
};

/// The types in which a function computes and returns. Moments and durations are computed as
/// Duration, or as Double, with NaN for a missing one.
struct Signature {
  ElementType compute = ElementType::Double;
  ElementType result = ElementType::Double;
};

/// All element functions, in the order in which help lists them.
std::span<const ElementFunction> elementFunctions();

/// The function of that name, or null.
const ElementFunction* findElementFunction(std::string_view name);

/// The common type of two numeric types, as in `numpy.promote_types`.
///
/// Requires: both are numbers or logicals.
ElementType promoteTypes(ElementType a, ElementType b);

/// The computing type and result type of `function` for inputs of the given types.
///
/// Weak inputs follow NumPy's rule for Python's scalars: they raise the kind of the result
/// (logical, integer, floating) but not its width. `int8Column * 2` is int8, `int8Column * 2.0`
/// is double. An operation on weak numbers only gives int64 or double.
/// Errors: "KALVEX:function:BadArity" for a wrong number of inputs; "KALVEX:function:BadTypes" if
///         the function isn't defined for these types.
Signature resolve(const ElementFunction& function, std::span<const OperandType> types);

/// The block function for a computing type that `resolve` returned; null for String.
BlockKernel blockKernel(const ElementFunction& function, ElementType compute, Spread spread);

/// `inputs` with each weak one converted to the type in which it is used, and no longer weak. Only
/// the types of the other inputs matter, so these may have no rows: a front end converts the
/// constants of a call when it records the call.
///
/// An integer column is compared exactly with any whole number: one beyond its range becomes an
/// infinity. A text combined with a time is parsed as a moment, or as a duration if it begins with
/// P (times.h).
/// Errors: those of `resolve`; "KALVEX:function:BadTime" for a text that is neither;
///         "KALVEX:function:OutOfRange" for a constant that doesn't fit the integers with which it
///         is combined; "KALVEX:array:NotExact" for a whole number that would have to become a
///         double but isn't exact as one; "KALVEX:function:NegativePower".
std::vector<ColumnOperand> adaptConstants(const ElementFunction& function,
                                          std::span<const ColumnOperand> inputs);

/// The same in place, for inputs without times. Weak texts stay as they are.
///
/// Errors: as for `adaptConstants`.
void adaptNumbers(const ElementFunction& function, std::span<RecordedOperand> inputs);

/// The result of `function` for constants only: one constant, as if the user had written it.
///
/// Numbers are computed in double. For whole numbers, a result that is whole and at most 2^53 is a
/// whole number again, except for quotients and mathematical functions.
/// Requires: all inputs are weak scalars.
/// Errors: as for `adaptConstants`.
ColumnOperand foldConstants(const ElementFunction& function, std::span<const ColumnOperand> inputs);

/// Applies `function` to `rows` rows.
///
/// Result: a column of `rows` rows, of the type that `resolve` gives.
/// Shapes: an input has `rows` rows, or one if it is scalar.
/// Errors: those of `adaptConstants`; "KALVEX:function:RowCounts" for an input of another length;
///         "KALVEX:function:NegativePower" for an integer to the power of a negative integer.
///         std::bad_alloc if memory runs out.
Column evaluate(const ElementFunction& function, std::span<const ColumnOperand> inputs,
                std::int64_t rows);

}  // namespace kv::runtime
