#include "classes/classes.h"
#include "classes/definitionHelpers.h"
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

void refuseToRun(const Call& call) {
  const Value saved = host::getSlot(call.in(0), "SavedVersion");
  host::raise("KALVEX:bigdata:array:InvalidTallVersion", {host::toText(saved.get())});
}

/// The release stands in the executor too, so that the array says by itself that it isn't valid; an
/// array of this release that it is combined with may bring another executor, which finds the
/// operation.
Value makeInvalidArray(const kxArray* release) {
  const Value operation = host::call(kInvalidOperation, {release});
  const Value none = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(0, 1, kcos::internal::makeInterned(kClosureFuture)));
  const Value closure = host::call(kClosure, {none.get(), operation.get()});
  const Value promise = host::getProperty(closure.get(), "OutputPromises");
  const Value future = host::getProperty(promise.get(), "Future");
  const Value strategy = host::call(kBroadcastStrategy);
  const Value executor = host::call(kInvalidExecutor, {release});
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
