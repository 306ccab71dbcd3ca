#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

// Reductions of all rows to one value.
//
// The answer is bit-identical however rows were cut into chunks and whoever computed which
// partition:
//
// 1. A partition's rows fall into blocks of kReductionBlock ordinals, and in a block into
//    kReductionLanes lanes, lane = ordinal % kReductionLanes. A lane is added up in ascending
//    order. A row that a filter took away leaves its place empty.
// 2. Lanes, then blocks, then partitions are merged in binary trees whose shape follows from their
//    numbers alone. What is empty changes nothing.
// 3. Sums of floating values carry their rounding error along (Knuth, The Art of Computer
//    Programming 2, 4.2.2, Theorem B), so that the error of a sum is about one unit in the last
//    place of the sum of absolute values. Sums of integers are exact, in 128 bits.
// 4. Variances are those of Chan, Golub, LeVeque, "Updating formulae and a pairwise algorithm for
//    computing sample variances" (1979); in a block, values are shifted by the first of them.
// 5. The sign of a zero and the payload of a NaN aren't part of an answer: +0 and the quiet NaN.

inline constexpr std::int64_t kReductionBlock = 4096;
inline constexpr std::int64_t kReductionLanes = 8;

enum class AggregateKind : std::uint8_t { Sum, Mean, Min, Max, Count, Std, Var, Any, All };

/// What a missing value (NaN, or a missing text) does to the answer.
enum class MissingRule : std::uint8_t {
  Skip,       ///< nothing: tables
  Propagate,  ///< makes it missing: arrays; except of `count`, which never counts it
};

/// One row of the table of aggregates.
struct AggregateFunction {
  std::string_view name;
  AggregateKind kind;
  std::string_view summary;
};

/// All aggregates, in the order in which help shows them.
std::span<const AggregateFunction> aggregateFunctions();

/// The aggregate of that name, or null.
const AggregateFunction* findAggregateFunction(std::string_view name);

/// The type of the answer for a column of type `input`.
///
/// For `sum`, as in NumPy: int64 of logical and signed integers, uint64 of unsigned ones, else that
/// of the input. For `mean`, `std` and `var`: single of single, otherwise double. For `min` and
/// `max`: that of the input. For `count`: int64. For `any` and `all`: logical.
/// Errors: "KALVEX:function:BadTypes" if the aggregate isn't defined for the type (FunctionError):
///         texts have `count`, `min` and `max`; `any` and `all` are for logical.
ElementType aggregateType(AggregateKind kind, ElementType input);

/// What one partition contributes to an answer: a value that can travel.
///
/// `words` by kind: sum and mean of floating values {sum, its rounding error} and std and var
/// {mean, sum of squared deviations} as bits of doubles; sum and mean of integers a 128-bit sum,
/// low half first; min and max the extreme, widened to 64 bits; any and all {number of true}.
struct AggregatePartial {
  AggregateKind kind = AggregateKind::Count;
  MissingRule rule = MissingRule::Skip;
  std::optional<ElementType> type;  ///< of the column; none if the partition had no chunk
  bool hasMissing = false;
  std::int64_t count = 0;  ///< of values that took part
  std::array<std::uint64_t, 2> words{};
  std::string text;  ///< the extreme text

  /// The partial as bytes: 32, and those of the text.
  std::string toBytes() const;

  /// Errors: "KALVEX:function:BadPartial" if `bytes` isn't what `toBytes` made (FunctionError).
  static AggregatePartial fromBytes(std::string_view bytes);
};

/// Reduces one partition, chunk by chunk.
///
/// Threads: one at a time.
class AggregateState {
 public:
  AggregateState(AggregateKind kind, MissingRule rule);
  ~AggregateState();
  AggregateState(AggregateState&&) noexcept;
  AggregateState& operator=(AggregateState&&) noexcept;

  /// Takes in the rows of one chunk.
  ///
  /// Requires: `column` has `ordinals.rows()` rows; ordinals ascend over all calls.
  /// Errors: those of `aggregateType`; "KALVEX:function:BadTypes" if the type isn't that of the
  ///         chunks before; "KALVEX:function:RowCounts" (FunctionError).
  void update(const Column& column, const RowOrdinals& ordinals);

  /// The contribution of all rows so far. The state is used up.
  AggregatePartial finish();

  /// What the state gathers, for one kind and type.
  class Accumulator;

 private:
  AggregatePartial partial_;
  std::unique_ptr<Accumulator> accumulator_;
  bool hasMissingColumn_ = false;
};

/// The answer from the contributions of partitions 0, 1, 2 ...
///
/// Result: a column of one row, of the type that `aggregateType` gives. Of no values, `sum` and
///         `count` are 0, `any` is false, `all` is true, and the others are missing; so are `std`
///         and `var` (both with n - 1) of one value.
/// Errors: "KALVEX:function:Overflow" with function, sum and type if a sum of integers doesn't fit
///         its type; "KALVEX:function:BadTypes" if partitions are of different types;
///         "KALVEX:function:BadPartial" if one is of another kind or rule (FunctionError).
Column combinePartials(AggregateKind kind, std::span<const AggregatePartial> partials);

}  // namespace kv::runtime
