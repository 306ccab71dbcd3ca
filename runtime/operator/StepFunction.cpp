#include "operator/StepFunction.h"

#include "column/arrays.h"

namespace kv::runtime {

std::vector<Chunk> StepFunction::call(const Chunk& rows, std::span<const FunctionInput> inputs) {
  scope_.types.noteCall();
  given_ = GivenRows::of(rows);
  return scope_.functions.call(scope_.step, rows, inputs, scope_.types);
}

PartitionResults StepFunction::callPartition(const Chunk& rows,
                                             std::span<const FunctionInput> inputs,
                                             const PartitionPlace& place, bool returnsUnused) {
  scope_.types.noteCall();
  given_ = GivenRows::of(rows);
  return scope_.functions.callPartition(scope_.step, rows, inputs, place, returnsUnused,
                                        scope_.types);
}

std::optional<std::vector<Chunk>> StepFunction::resultsWithoutRows() const {
  const KnownTypes* known = scope_.typesForNoRows;
  if (known == nullptr) {
    return std::vector(scope_.numOutputs, emptyArray({}));
  }
  const auto found = known->find(scope_.step);
  if (found == known->end()) {
    return std::nullopt;
  }
  std::vector<Chunk> results;
  for (const ArrayType& type : found->second) {
    results.push_back(emptyArray(type));
  }
  return results;
}

}  // namespace kv::runtime
