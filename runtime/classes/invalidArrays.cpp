#include <exception>
#include <string>
#include <utility>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/sessionValues.h"
#include "driver/ClosureTasks.h"
#include "driver/failures.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// InvalidVersionExecutor(release)
void constructExecutor(const Call& call) {
  host::setSlot(call.in(0), "SavedVersion", matrix::sharedCopy(call.in(1)));
}

/// The stack where the first array of another release was loaded that a task graph needs.
Value loadedStack(const kxArray* taskGraph) {
  const ClosureTasks entries(taskGraph);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Value operation = host::getProperty(entries.closure(i), "Operation");
    if (kxIsA(operation.get(), kInvalidOperation)) {
      return host::getProperty(operation.get(), "Stack");
    }
  }
  return nullptr;
}

/// execute(executor, taskGraph, promises)
void refuseToRun(const Call& call) {
  const Value saved = host::getSlot(call.in(0), "SavedVersion");
  try {
    host::raise("KALVEX:bigdata:array:InvalidTallVersion", {host::toText(saved.get())});
  } catch (...) {
    const OpSpec spec{.label = "an array of another release"};
    raiseStepFailure(failureOf(std::current_exception()), spec, loadedStack(call.in(1)).get());
  }
}

Value makeFuture(const kxArray* release) {
  const Value operation = host::call(kInvalidOperation, {release});
  const Value none = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(0, 1, kcos::internal::makeInterned(kClosureFuture)));
  const Value closure = host::call(kClosure, {none.get(), operation.get()});
  const Value promise = host::getProperty(closure.get(), "OutputPromises");
  return host::getProperty(promise.get(), "Future");
}

bool isAlive(const kcos::COSInterfacePtr& object) {
  return object.get() != nullptr && !object->isDeleted();
}

kcos::COSInterfacePtr weakTo(const Value& object) {
  return {kcos::omGetArrayElement(object.get(), 0).get(), kcos::COSReferenceType::Weak};
}

bool isSameStack(const kxArray* a, const kxArray* b) {
  return kxIsSameValue(a, b) || (kxIsEmpty(a) && kxIsEmpty(b));
}

Value arrayOf(const kcos::COSInterfacePtr& object) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(object));
}

/// The executor also has the release, so that the array itself reports that it isn't valid. An
/// array of this release with which it is combined may bring another executor, which finds the
/// operation.
Value makeInvalidArray(const kxArray* release) {
  InvalidGraph& shared = runtimeState().invalid;
  Value stack = host::call("userStackBuiltin");
  const std::string text = host::toText(release);
  const bool isKnown = isAlive(shared.future) && isAlive(shared.executor) &&
                       shared.release == text && isSameStack(shared.stack.get(), stack.get());
  const Value future = isKnown ? arrayOf(shared.future) : makeFuture(release);
  const Value executor =
      isKnown ? arrayOf(shared.executor) : host::call(kInvalidExecutor, {release});
  if (!isKnown) {
    shared = {text, std::move(stack), weakTo(future), weakTo(executor)};
  }
  const Value strategy = host::call(kBroadcastStrategy);
  return host::call("createFromFutureBuiltin", {future.get(), strategy.get(), executor.get()});
}

}  // namespace

void defineInvalidArrays(host::Session& session) {
  define(session,
         {.name = kInvalidExecutor,
          .superclasses = {kExecutor},
          .properties = {readOnly("SavedVersion")},
          .constructor = constructor(constructExecutor, 2, 2),
          .methods = {method(
                          "checkIsValidNow",
                          [](const Call& call) { call.out(0, host::makeLogical(false)); }, 1, 1),
                      method("execute", refuseToRun, 3, 3)}});
  complete(session, kLazyArray,
           {staticMethod(
               "createInvalidVersionArray",
               [](const Call& call) { call.out(0, makeInvalidArray(call.in(0))); }, 1, 1)});
}

}  // namespace kv::runtime
