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
// The result is bit-identical however rows are cut into chunks and wherever a partition is
// computed:
//
// 1. The rows of a partition are grouped into blocks of kReductionBlock ordinals and, within a
//    block, into kReductionLanes lanes: lane = ordinal % kReductionLanes. A lane is summed in
//    ascending order. A row removed by a filter leaves its place empty.
// 2. Lanes, then blocks, then partitions are merged in binary trees whose shape depends only on
//    their numbers. Empty places change nothing.
// 3. Sums of floating values carry their rounding error (Knuth, The Art of Computer Programming 2,
//    4.2.2, Theorem B), so the error of a sum is about one unit in the last place of the sum of
//    absolute values. Sums of integers are exact, in 128 bits.
// 4. Variances follow Chan, Golub, LeVeque, "Updating formulae and a pairwise algorithm for
//    computing sample variances" (1979); within a block, values are shifted by its first value.
// 5. The sign of a zero and the payload of a NaN aren't part of a result: it is +0 and the quiet
//    NaN.

inline constexpr std::int64_t kReductionBlock = 4096;
inline constexpr std::int64_t kReductionLanes = 8;

enum class AggregateKind : std::uint8_t {
  Sum,
  Mean,
  Min,
  Max,
  Count,
  Std,
  Var,
  Any,
  All,
  StdP,
  VarP
};

/// How a missing value (NaN, kNaT, a null or a missing text) affects the result.
enum class MissingRule : std::uint8_t {
  Skip,       ///< not at all: tables
  Propagate,  ///< the result is missing: arrays; except for `count`, which never counts it
};

/// What is reduced to what.
struct AggregateForm {
  MissingRule missing = MissingRule::Skip;
  bool isWhole = false;    ///< all columns of an array to one value, not each to its own
  bool needsRows = false;  ///< of no rows there is an error instead of a missing value: min, max

  bool operator==(const AggregateForm&) const = default;
};

/// The contribution of one partition to a result: a plain value that can be sent elsewhere.
///
/// `words` by kind: sum and mean of floating values {sum, its rounding error} and std and var, also
/// stdp and varp, {mean, sum of squared deviations} as bits of doubles; sum and mean of integers a
/// 128-bit sum, low half first; min and max the extreme, widened to 64 bits; any and all {number of
/// true}.
struct AggregatePartial {
  AggregateKind kind = AggregateKind::Count;
  MissingRule rule = MissingRule::Skip;
  std::optional<ElementType> type;  ///< of the column; none if the partition had no chunk
  bool hasMissing = false;
  std::int64_t count = 0;  ///< number of values used
  std::array<std::uint64_t, 2> words{};
  std::string text;  ///< the extreme text

  /// The partial as bytes: 32, plus those of the text.
  std::string toBytes() const;

  /// Errors: "KALVEX:function:BadPartial" if `bytes` weren't made by `toBytes`.
  static AggregatePartial fromBytes(std::string_view bytes);
};

class Accumulator;

/// One row of the table of aggregates.
struct AggregateFunction {
  std::string_view name;
  AggregateKind kind;
  std::string_view summary;

  /// The type of the result for a column of this type; empty if it isn't defined for the type.
  std::optional<ElementType> (*type)(ElementType input);

  /// Accumulates a partition of a type for which the aggregate is defined.
  std::unique_ptr<Accumulator> (*accumulator)(MissingRule rule, ElementType type);

  /// Merges count, words and text of a later partition of the same type into an earlier one.
  void (*merge)(AggregatePartial& partial, const AggregatePartial& later);

  /// The result from the contributions of all partitions.
  Column (*answer)(const AggregatePartial& total);

  /// The result in each row of some columns, computed in their order.
  ///
  /// Requires: at least one column; all of one type, numeric or logical, and of the same rows;
  ///           none has nulls.
  /// Errors: "KALVEX:function:Overflow" as for the result of all rows.
  Column (*ofRows)(std::span<const Column> columns, MissingRule rule);

  /// True if there are forms of it that need rows, see AggregateForm.
  bool canNeedRows = false;
};

/// All aggregates, in the order in which help lists them.
std::span<const AggregateFunction> aggregateFunctions();

/// The aggregate of that name, or null.
const AggregateFunction* findAggregateFunction(std::string_view name);

/// The type of the result for a column of type `input`.
///
/// For `sum`, as in NumPy: int64 for logicals and signed integers, uint64 for unsigned ones,
/// otherwise the type of the input. For `mean`, `std`, `var`, `stdp` and `varp`: single for single,
/// otherwise double; the mean of durations is one, towards zero. For `min` and `max`: the type of
/// the input. For `count`: int64. For `any` and `all`: logical.
/// Errors: "KALVEX:function:BadTypes" if the aggregate isn't defined for the type:
///         texts and datetimes have only `count`, `min` and `max`, durations `sum` and `mean` as
///         well; `any` and `all` are for logicals.
ElementType aggregateType(AggregateKind kind, ElementType input);

/// Reduces one partition, chunk by chunk.
///
/// Threads: one at a time.
class AggregateState {
 public:
  AggregateState(AggregateKind kind, MissingRule rule);
  ~AggregateState();
  AggregateState(AggregateState&&) noexcept;
  AggregateState& operator=(AggregateState&&) noexcept;

  /// Adds the rows of one chunk.
  ///
  /// Requires: ordinals ascend over all calls.
  /// Errors: those of `aggregateType`; "KALVEX:function:BadTypes" if the type differs from that of
  ///         earlier chunks; "KALVEX:function:RowCounts".
  void update(const Column& column, const RowOrdinals& ordinals);

  /// The contribution of all rows so far. The state can't be used afterwards.
  AggregatePartial finish();

 private:
  AggregatePartial partial_;
  std::unique_ptr<Accumulator> accumulator_;
  bool hasMissing_ = false;  ///< nulls or kNaT, which the accumulator isn't given
};

/// The result from the contributions of partitions 0, 1, 2, ...
///
/// Result: a column of one row, of the type that `aggregateType` gives. For no values, `sum` and
///         `count` are 0, `any` is false, `all` is true, and the others are missing; for one value,
///         `std` and `var` (both with n - 1) are missing, and `stdp` and `varp` (with n) are 0.
/// Errors: "KALVEX:function:Overflow" with function, sum and type if a sum of integers doesn't fit
///         its type; "KALVEX:function:BadTypes" if partitions are of different types;
///         "KALVEX:function:BadPartial" if one is of another kind or rule.
Column combinePartials(AggregateKind kind, std::span<const AggregatePartial> partials);

}  // namespace kv::runtime
