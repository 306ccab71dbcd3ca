// By the core's rule an elementwise operation whose inputs are there is evaluated at once, and its
// result is the value of a new promise. The core gives the operation values alone, so the call that
// records it is watched: which rows the inputs are is noted in their promises, and which rows the
// outputs are belongs in theirs.

#include "classes/directEvaluation.h"

#include <algorithm>
#include <cassert>
#include <functional>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/dependencies.h"
#include "classes/interrupts.h"
#include "classes/recordedOperation.h"
#include "classes/sessionValues.h"
#include "driver/Evaluation.h"
#include "driver/builtInFunctions.h"
#include "driver/failures.h"
#include "driver/readTaskGraph.h"
#include "kv/host/errors.h"
#include "kv/host/methodWrappers.h"
#include "values/columnValues.h"
#include "values/hostNames.h"
#include "values/placesValues.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// The promise of a lazy array that is complete; null for any other value.
Value donePromise(const kxArray* input) {
  if (!kcos::omIsKCOS(input) || !kxIsA(input, kLazyArray)) {
    return nullptr;
  }
  const Value future = host::getProperty(input, "ValueFuture");
  const bool isDone = host::toLogical(host::getProperty(future.get(), "IsDone").get());
  return isDone ? host::getProperty(future.get(), "Promise") : nullptr;
}

/// True if a lazy array is complete and has rows of a source.
bool hasPlaces(const kxArray* input) {
  const Value promise = donePromise(input);
  return promise != nullptr && !kxIsEmpty(host::getProperty(promise.get(), "Metadata").get());
}

Dependency dependencyOf(const kxArray* input, const kxArray* value) {
  if (const Value promise = donePromise(input)) {
    return completeDependency(promise.get());
  }
  std::vector<Value> entry;
  entry.push_back(matrix::sharedCopy(value));
  entry.push_back(host::makeEmptyDouble());
  entry.push_back(host::makeLogical(true));
  return {host::makeCell(std::move(entry)), true};
}

/// The call at hand, for the span of its method.
class DirectCallScope {
 public:
  explicit DirectCallScope(DirectCall& call)
      : outer_(std::exchange(runtimeState().directCall, &call)) {}
  ~DirectCallScope() { runtimeState().directCall = outer_; }
  DirectCallScope(const DirectCallScope&) = delete;
  DirectCallScope& operator=(const DirectCallScope&) = delete;

 private:
  DirectCall* outer_;
};

void recordElementfun(const Call& call, const std::function<void()>& proceed) {
  DirectCall direct{{call.prhs, static_cast<std::size_t>(call.nrhs)}};
  const DirectCallScope scope(direct);
  proceed();
  for (std::size_t i = 0; i < direct.metadata.size(); ++i) {
    if (direct.metadata[i] != nullptr && call.plhs[i] != nullptr) {
      host::callMany("hSetMetadata", 0,
                     std::vector<const kxArray*>{call.plhs[i], direct.metadata[i].get()});
    }
  }
}

void evaluateRows(const Call& call, DirectCall& direct) {
  const auto numInputs = static_cast<std::size_t>(call.nrhs) - 1;
  assert(numInputs <= direct.inputs.size());
  const auto inputs = direct.inputs.last(numInputs);
  std::vector<Dependency> dependencies;
  for (std::size_t i = 0; i < numInputs; ++i) {
    dependencies.push_back(dependencyOf(inputs[i], call.in(static_cast<int>(i) + 1)));
  }
  const ClientPlan client = readTask(tasksOfOperation(call.in(0), std::move(dependencies)));
  if (const OpSpec& spec = *client.plan.task(0).spec; !spec.isTrusted) {
    host::raise("KALVEX:load:NotTrusted", {spec.label});
  }
  std::vector<MaterialisedValue> outputs;
  asEvaluation([&](const ExecutionContext& context) {
    Evaluation evaluation(client, context);
    evaluation.run();
    outputs = evaluation.takeOutputs(0);
  });
  const int wanted = std::max(call.nlhs, 1);
  for (std::size_t i = 0; i < outputs.size() && static_cast<int>(i) < wanted; ++i) {
    call.out(static_cast<int>(i), matrix::sharedCopy(outputs[i].value.get()));
    direct.metadata.push_back(outputs[i].places ? toMetadata(*outputs[i].places) : nullptr);
  }
}

}  // namespace

void directEvaluate(const Call& call) {
  DirectCall* direct = std::exchange(runtimeState().directCall, nullptr);
  if (direct != nullptr && std::ranges::any_of(direct->inputs, hasPlaces)) {
    evaluateRows(call, *direct);
    return;
  }
  const Value function = host::getProperty(call.in(0), "FunctionHandle");
  std::vector<const kxArray*> inputs(call.prhs, call.prhs + call.nrhs);
  inputs[0] = function.get();
  std::vector<Value> plain;
  for (std::size_t i = 1; i < inputs.size() && !passesTagged(call.in(0)); ++i) {
    plain.push_back(withoutBroadcast(inputs[i]));
    inputs[i] = plain.back().get();
  }
  std::vector<Value> outputs = errors::catchingFailures(
      [&] { return host::callMany("feval", call.nlhs, inputs); },
      [&](const std::exception_ptr& failure) -> std::vector<Value> {
        OpSpec spec;
        describeOperation(operationClass(kElementwiseOperation), call.in(0), spec);
        raiseStepFailure(failureOf(failure), spec, host::getProperty(call.in(0), "Stack").get());
      });
  const bool isBuiltIn = isBuiltInHandle(function.get());
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    call.out(static_cast<int>(i),
             isBuiltIn ? std::move(outputs[i]) : asReturned(std::move(outputs[i])));
  }
}

void defineDirectEvaluation(host::Session& /*session*/) {
  host::wrapMethod(kLazyArray, "elementfun", recordElementfun);
}

}  // namespace kv::runtime
