#include "operator/operations.h"

#include <fmt/core.h>

#include <cmath>
#include <utility>

#include "column/elementTypes.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

RecordedFunction noteFunction(const RecordedOperation& operation, OpSpec& spec) {
  RecordedFunction function = operation.function("FunctionHandle");
  spec.isTrusted = function.isTrusted;
  spec.label = function.label;
  spec.functions = {function.name};
  spec.passesTagged = function.builtIn == BuiltInFunction{} && operation.passesTagged();
  spec.isFree = function.isFree && !spec.passesTagged;  // which needs the session
  return function;
}

RecordedFunction noteReduction(const RecordedOperation& operation, OpSpec& spec) {
  RecordedFunction function = operation.function("ReduceHandle");
  spec.isTrusted = spec.isTrusted && function.isTrusted;
  spec.functions.push_back(function.name);
  return function;
}

void describeNewRows(const RecordedOperation& operation, OpSpec& spec, OperatorPtr op) {
  noteFunction(operation, spec);
  spec.callsUser = true;
  spec.op = std::move(op);
  spec.wholeRun = WholeRun::RunFlow;
}

std::int64_t rowCount(double rows, double least, std::string_view id) {
  if (!(rows >= least && rows <= kMaxExactWhole && std::trunc(rows) == rows)) {
    errors::raiseStep(id, {fmt::format("{}", rows)});
  }
  return static_cast<std::int64_t>(rows);
}

std::string countedRows(std::int64_t rows) {
  return fmt::format("{} row{}", rows, rows == 1 ? "" : "s");
}

}  // namespace kv::runtime
