// The table of operators and, by them, of the classes of operations that they run.

#include "operator/operators.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <vector>

#include "operator/operations.h"

namespace kv::runtime {

using RowOfOperator = const OperatorRow&();

// Each in the file of its operator.
RowOfOperator readRow, variableRow, elementwiseRow, callableRow, filterRow, passRow, spreadRow,
    zipRow, frameRow, chunkwiseRow, partitionwiseRow, generalPartitionwiseRow, aggregateRow,
    reductionRow, groupsRow, keyedReductionRow, repartitionRow, headRow, deliverRow, writeRow,
    collectRow, clientOnlyRow;

namespace {

constexpr RowOfOperator* kRows[] = {
    readRow,        variableRow,   elementwiseRow,   callableRow,
    filterRow,      passRow,       spreadRow,        zipRow,
    frameRow,       chunkwiseRow,  partitionwiseRow, generalPartitionwiseRow,
    aggregateRow,   reductionRow,  groupsRow,        keyedReductionRow,
    repartitionRow, headRow,       deliverRow,       writeRow,
    collectRow,     clientOnlyRow,
};

}  // namespace

std::span<const OperationClass* const> operationClasses() {
  static const std::vector<const OperationClass*> classes = [] {
    std::vector<const OperationClass*> all;
    for (RowOfOperator* row : kRows) {
      for (const OperationClass& each : row().classes) {
        all.push_back(&each);
      }
    }
    return all;
  }();
  return classes;
}

const OperationClass& operationClass(std::string_view name) {
  const auto found = std::ranges::find(operationClasses(), name, &OperationClass::name);
  assert(found != operationClasses().end());
  return **found;
}

OperatorPtr readOperator(ByteReader& bytes) {
  const std::string name = bytes.text();
  const auto* found = std::ranges::find_if(
      kRows, [&](RowOfOperator* row) { return row().read != nullptr && row().name == name; });
  if (found == std::end(kRows)) {
    bytes.refuse();
  }
  return (*found)().read(bytes);
}

void writeOperator(const Operator& op, ByteWriter& bytes) {
  bytes.text(op.facts().name);
  op.write(bytes);
}

}  // namespace kv::runtime
