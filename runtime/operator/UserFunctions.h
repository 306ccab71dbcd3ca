#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "kv/runtime/Chunk.h"
#include "operator/OutputTypes.h"

namespace kv::runtime {

/// An input of a user's function.
struct FunctionInput {
  std::optional<Chunk> rows;  ///< an array of the rows at hand; none for a value
  std::size_t value = 0;      ///< the stage's input that each call gets as the user supplied it
};

/// The place of rows in a partition, which a function of partitions is given.
struct PartitionPlace {
  std::int64_t numPartitions = 1;
  std::vector<std::int64_t> firstRow{};  ///< of each input: in the partition, from 0
  std::vector<bool> isLast{};            ///< of each input: no more rows come
};

/// What a function of partitions returned.
struct PartitionResults {
  bool isFinished = false;
  std::vector<Chunk> outputs{};                ///< as of UserFunctions::call
  std::vector<std::optional<Chunk>> unused{};  ///< rows to get again, by input with rows
};

/// What the second function of a user's reduction returned: values that only the code that called
/// it can read.
using ReducedValues = std::shared_ptr<const void>;

/// Runs users' functions for the steps of a stage. Those that aren't overridden are for stages none
/// of whose steps call them.
class UserFunctions {
 public:
  virtual ~UserFunctions() = default;

  /// Calls the function of step `step` on rows of one partition. `rows` says which rows they are;
  /// `types` records the types of what the function returns. The rows of a partition come in order.
  ///
  /// Result: an array for each output of the step, with ordinals from 0.
  /// Errors: what the function raises, as it came; "KALVEX:array:MissingOutput"; those of
  ///         OutputTypes.
  virtual std::vector<Chunk> call(std::size_t step, const Chunk& rows,
                                  std::span<const FunctionInput> inputs, OutputTypes& types);

  /// Calls the function of step `step`, which is given its place in the partition and returns first
  /// whether it is finished; where `returnsUnused` is set, then a cell with an entry for each
  /// input, of rows that it is to get again.
  ///
  /// Errors: as of `call`; "KALVEX:array:PartitionResult" with what isn't as above.
  virtual PartitionResults callPartition(std::size_t step, const Chunk& rows,
                                         std::span<const FunctionInput> inputs,
                                         const PartitionPlace& place, bool returnsUnused,
                                         OutputTypes& types);

  /// Calls the second function of step `step`, a reduction, on partial results, one array for each
  /// output.
  /// Errors: what the function raises, as it came.
  virtual ReducedValues reduce(std::size_t step, std::span<const Chunk> partials);

  /// What `reduce` returned as partial results again.
  /// Errors: "KALVEX:array:NotAColumn" with the shape and class of what is no array.
  virtual std::vector<Chunk> partialsOf(std::size_t step, const ReducedValues& reduced);

  /// True if the units of the stage run one after the other, in the order of partitions.
  virtual bool runsInOrder() const { return false; }

  /// Drops what is kept between the calls for a partition, whose unit has ended.
  virtual void endPartition(std::int64_t /*partition*/) {}
};

}  // namespace kv::runtime
