#include <fmt/core.h>

#include "operator/operations.h"

/// Operations that no operator runs: a function that is called once in the client, and what another
/// release saved.
namespace kv::runtime {

namespace {

void describeClient(const RecordedOperation& operation, OpSpec& spec) {
  noteFunction(operation, spec);
  spec.callsUser = true;
}

void describeInvalid(const RecordedOperation& operation, OpSpec& spec) {
  spec.isRunnable = false;
  spec.savedRelease = operation.text("SavedVersion");
  spec.label = fmt::format("an array that release {} saved", spec.savedRelease);
}

}  // namespace

const OperatorRow& clientOnlyRow() {
  static const OperatorRow row{
      .classes = {{.name = "kalvex.bigdata.internal.lazyeval.NonPartitionedOperation",
                   .inputs = {"Options", "FunctionHandle", "NumInputs", "NumOutputs"},
                   .describe = describeClient},
                  {.name = "kalvex.bigdata.internal.lazyeval.InvalidVersionOperation",
                   .inputs = {"SavedVersion"},
                   .arity = kSource,
                   .describe = describeInvalid,
                   .shownProperty = "SavedVersion"}}};
  return row;
}

}  // namespace kv::runtime
