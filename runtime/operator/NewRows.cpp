#include "operator/NewRows.h"

#include <string>

#include "kv/errors/StepError.h"

namespace kv::runtime {

MixedInputs::MixedInputs(std::span<const FlowInput> inputs)
    : inputs_(inputs.begin(), inputs.end()), placeOf_(inputs.size()) {
  for (std::size_t input = 0; input < inputs.size(); ++input) {
    if (hasRows(input)) {
      placeOf_[input] = origins_.size();
      origins_.push_back(inputs[input].origin);
    }
  }
}

std::vector<FunctionInput> MixedInputs::arguments(std::string_view label,
                                                  const std::vector<Chunk>& rows) const {
  std::vector<FunctionInput> arguments;
  for (std::size_t input = 0; input < inputs_.size(); ++input) {
    if (!hasRows(input)) {
      arguments.push_back({std::nullopt, inputs_[input].valueNumber});
      continue;
    }
    const Chunk& own = rows[placeOf(input)];
    if (own.names != nullptr) {
      errors::raiseStep("KALVEX:array:NeedsColumn", {std::string(label), "a table"});
    }
    arguments.push_back({own});
  }
  return arguments;
}

void NewRows::number(std::string_view label, std::vector<Chunk>& outputs, std::int64_t partition) {
  const std::int64_t rows = outputs.front().rows();
  for (Chunk& output : outputs) {
    if (output.rows() != rows) {
      errors::raiseStep("KALVEX:array:OutputRows",
                        {std::string(label), std::to_string(rows), std::to_string(output.rows())});
    }
    output.partition = partition;
    output.ordinals = RowOrdinals(next_, rows);
  }
  next_ += rows;
}

std::optional<std::vector<Chunk>> FramedFunction::nextFrame() {
  function_.forget();
  const std::int64_t rows = rowsOfFrame();
  return rows > 0 || waiting_.isAtEnd() ? waiting_.take(rows) : std::nullopt;
}

}  // namespace kv::runtime
