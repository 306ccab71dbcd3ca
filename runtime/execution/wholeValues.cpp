#include "execution/wholeValues.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "kv/host/errors.h"
#include "values/columnValues.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

using host::Value;

constexpr std::array<std::string_view, 3> kMetadataFields{"RowCount", "PartitionRows", "Ordinals"};

Value int64Column(const std::vector<std::int64_t>& numbers) {
  Value column = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{numbers.size(), 1}, kxINT64_CLASS));
  std::copy(numbers.begin(), numbers.end(),
            static_cast<std::int64_t*>(kxGetMutableData(column.get())));
  return column;
}

/// Which rows were kept: where each partition begins, and the ordinals if some are left out.
Value rowMetadata(const std::vector<std::vector<Chunk>>& partitions) {
  std::vector<std::int64_t> firstRow{0};
  std::vector<std::int64_t> ordinals;
  bool isWhole = true;
  for (const std::vector<Chunk>& chunks : partitions) {
    std::int64_t rows = 0;
    for (const Chunk& chunk : chunks) {
      isWhole = isWhole &&
                (chunk.rows() == 0 || (chunk.ordinals.isRange() && chunk.ordinals.at(0) == rows));
      rows += chunk.rows();
    }
    firstRow.push_back(firstRow.back() + rows);
  }
  for (const std::vector<Chunk>& chunks : partitions) {
    for (std::size_t i = 0; i < chunks.size() && !isWhole; ++i) {
      for (std::int64_t row = 0; row < chunks[i].rows(); ++row) {
        ordinals.push_back(chunks[i].ordinals.at(row));
      }
    }
  }
  Value metadata = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kMetadataFields));
  const auto set = [&](std::string_view field, Value value) {
    kxSetField(metadata.get(), 0, field, value.release());
  };
  set("RowCount", host::makeDouble(static_cast<double>(firstRow.back())));
  set("PartitionRows", int64Column(firstRow));
  set("Ordinals", isWhole ? host::makeEmptyDouble() : int64Column(ordinals));
  return metadata;
}

/// Columns of one name over all chunks. Those without rows have a type by default only.
Column joinColumn(const std::vector<std::vector<Chunk>>& partitions, std::size_t index) {
  std::vector<Column> parts;
  std::vector<Column> empty;
  for (const std::vector<Chunk>& chunks : partitions) {
    for (const Chunk& chunk : chunks) {
      (chunk.rows() > 0 ? parts : empty).push_back(chunk.columns[index]);
    }
  }
  if (parts.empty() && !empty.empty()) {
    return empty.front();
  }
  return concatenate(parts);
}

const Chunk* firstChunk(const std::vector<std::vector<Chunk>>& partitions) {
  for (const std::vector<Chunk>& chunks : partitions) {
    if (!chunks.empty()) {
      return &chunks.front();
    }
  }
  return nullptr;
}

}  // namespace

WholeValue joinRows(const std::vector<std::vector<Chunk>>& partitions) {
  Chunk whole;
  if (const Chunk* first = firstChunk(partitions)) {
    whole.names = first->names;
    for (std::size_t i = 0; i < first->columns.size(); ++i) {
      whole.columns.push_back(joinColumn(partitions, i));
    }
  }
  return {toValue(whole), rowMetadata(partitions)};
}

StageInput stageInput(const kxArray* value, const kxArray* metadata, bool isConstant) {
  StageInput input{toColumn(value), isConstant && kxIsScalar(value), std::nullopt};
  if (kxIsEmpty(metadata)) {
    return input;
  }
  const auto* firstRow =
      static_cast<const std::int64_t*>(kxGetData(kxGetField(metadata, 0, "PartitionRows")));
  const std::size_t count = kxGetNumberOfElements(kxGetField(metadata, 0, "PartitionRows"));
  const kxArray* ordinals = kxGetField(metadata, 0, "Ordinals");
  input.partitioned.emplace();
  input.partitioned->firstRow.assign(firstRow, firstRow + count);
  if (!kxIsEmpty(ordinals)) {
    input.partitioned->ordinals = toColumn(ordinals);
  }
  return input;
}

Chunk toChunk(const kxArray* value) {
  Chunk chunk;
  if (kxIsA(value, "table")) {
    const Value names = host::getProperty(value, "VariableNames");
    const Value columns = host::getProperty(value, "Columns");
    chunk.names = std::make_shared<const std::vector<std::string>>(host::toTexts(names.get()));
    for (std::size_t i = 0; i < kxGetNumberOfElements(columns.get()); ++i) {
      chunk.columns.push_back(toColumn(kxGetCell(columns.get(), i)));
    }
  } else {
    chunk.columns.push_back(toColumn(value));
  }
  const std::int64_t rows = chunk.columns.empty() ? 0 : chunk.columns.front().rows();
  chunk.ordinals = RowOrdinals(0, rows);
  return chunk;
}

Value toValue(const Chunk& chunk) {
  if (chunk.names == nullptr && chunk.columns.size() == 1) {
    return toValue(chunk.columns.front());
  }
  std::vector<Value> columns;
  std::vector<const kxArray*> inputs;
  for (const Column& column : chunk.columns) {
    columns.push_back(toValue(column));
    inputs.push_back(columns.back().get());
  }
  const Value label = host::makeChars("VariableNames");
  const Value names = host::makeStringRow(chunk.names ? *chunk.names : std::vector<std::string>{});
  inputs.push_back(label.get());
  inputs.push_back(names.get());
  return host::call("table", inputs);
}

Value inputValue(const PlanInput& input, const WholeValues& values) {
  if (input.task < 0) {
    return matrix::sharedCopy(input.value.get());
  }
  const std::vector<WholeValue>& outputs = values[static_cast<std::size_t>(input.task)];
  return input.output < outputs.size() ? matrix::sharedCopy(outputs[input.output].value.get())
                                       : nullptr;
}

}  // namespace kv::runtime
