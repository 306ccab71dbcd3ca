#include "persistence/trust.h"

#include <memory>

#include "driver/OpSpecValue.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Value;

/// What a task does; null if it is of a user's own kind.
std::shared_ptr<const OpSpec> specOf(const kxArray* task) {
  const Value factory = host::getProperty(task, "DataProcessorFactory");
  const auto* known = kcos::omIsKCOS(factory.get())
                          ? dynamic_cast<OpSpecValue*>(host::getNativeValue(factory.get()))
                          : nullptr;
  return known != nullptr ? known->spec : nullptr;
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
  // A processor builder is a factory, too.
  session.guardMethod(kProcessorFactory, "feval");
}

void requireTrustedTasks(const kxArray* taskGraph, const ClosureTasks& entries) {
  host::requireTrusted(taskGraph, kxGetClassName(taskGraph));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Value operation = host::getProperty(entries.closure(i), "Operation");
    const std::shared_ptr<const OpSpec> spec = specOf(entries.task(i));
    const bool isTrusted = host::isTrusted(operation.get()) &&
                           host::isTrusted(entries.closure(i)) &&
                           (spec == nullptr || spec->isTrusted);
    if (!isTrusted) {
      host::raise("KALVEX:load:NotTrusted",
                  {spec != nullptr ? spec->label : kxGetClassName(operation.get())});
    }
  }
}

}  // namespace kv::runtime
