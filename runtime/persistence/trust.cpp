#include "persistence/trust.h"

#include <string>

#include "execution/OpSpec.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

using host::Value;

/// What the tasks of an operation do, in the words of the plan; the operation's class where the
/// task is of a user's own kind.
std::string labelOf(const kxArray* task, const kxArray* operation) {
  const Value factory = host::getProperty(task, "DataProcessorFactory");
  if (kcos::omIsKCOS(factory.get())) {
    if (const auto* known = dynamic_cast<OpSpecValue*>(host::getNativeValue(factory.get()))) {
      return known->spec->label;
    }
  }
  return kxGetClassName(operation);
}

/// An operation is no more trusted than the source that it reads from.
bool isTrustedOperation(const kxArray* operation) {
  return host::isTrusted(operation) &&
         (!kxIsA(operation, kReadOperation) ||
          host::isTrusted(host::getProperty(operation, "Datastore").get()));
}

}  // namespace

void guardCoreEvaluation(host::Session& session) {
  session.guardMethod(kOperation, "directEvaluate");
  session.guardMethod(kOperation, "directEvaluateImpl");
  session.guardMethod(kFunctionHandle, "feval");
  session.guardMethod(kFunctionHandle, "copy");
}

void guardRuntimeEvaluation(host::Session& session) {
  session.guardMethod(kDatastore, "copy");
  session.guardMethod(kProcessorBuilder, "feval");
  session.guardMethod(kProcessorFactory, "feval");
}

void requireTrustedTasks(const kxArray* taskGraph, const ClosureTasks& entries) {
  host::requireTrusted(taskGraph, kxGetClassName(taskGraph));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Value operation = host::getProperty(entries.closure(i), "Operation");
    if (!isTrustedOperation(operation.get()) || !host::isTrusted(entries.closure(i))) {
      host::raise("KALVEX:load:NotTrusted", {labelOf(entries.task(i), operation.get())});
    }
  }
}

}  // namespace kv::runtime
