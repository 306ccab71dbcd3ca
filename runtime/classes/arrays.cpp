// The functions of arrays that the core leaves to its host, or that take several arrays at once:
// gather, clientforeach, broadcast.

#include "classes/arrays.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/sessionMemory.h"
#include "classes/sessionValues.h"
#include "driver/ClosureTasks.h"
#include "driver/frames.h"
#include "persistence/trust.h"
#include "sink/WriteTarget.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

void constructWrapper(const Call& call) {
  host::setSlot(call.in(0), "Value", matrix::sharedCopy(call.in(1)));
}

Value objectColumn(const std::vector<Value>& scalars, kcos::NameRef className) {
  Value column = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(scalars.size(), 1, kcos::internal::makeInterned(className)));
  for (std::size_t i = 0; i < scalars.size(); ++i) {
    kcos::omSetArrayElement(column.get(), i, kcos::omGetArrayElement(scalars[i].get(), 0));
  }
  return column;
}

/// Collects scalar objects, each object once.
class DistinctObjects {
 public:
  void add(Value scalar) {
    if (seen_.insert(kcos::omGetArrayElement(scalar.get(), 0).get()).second) {
      scalars_.push_back(std::move(scalar));
    }
  }
  const std::vector<Value>& scalars() const { return scalars_; }

 private:
  std::unordered_set<const kcos::COSInterface*> seen_;
  std::vector<Value> scalars_;
};

void takeExecutor(Value& executor, const kxArray* array) {
  Value next = host::call("getExecutor", {array});
  if (executor == nullptr) {
    executor = std::move(next);
  } else if (!kxIsSameValue(executor.get(), next.get())) {
    host::call("checkSameExecutor", {executor.get(), next.get()});
  }
}

void getEvaluationObjects(const Call& call) {
  EvaluationObjects objects = evaluationObjects({call.prhs, static_cast<std::size_t>(call.nrhs)});
  call.out(0, std::move(objects.taskGraph));
  call.out(1, std::move(objects.executor));
  call.out(2, std::move(objects.promises));
}

Value gathered(const kxArray* array) {
  if (!kxIsA(array, kLazyArray)) {
    return matrix::sharedCopy(array);
  }
  return host::getProperty(host::getProperty(array, "ValueFuture").get(), "Value");
}

/// [a, b, ...] = gather(x, y, ...): evaluates all pending inputs together.
void gather(const Call& call) {
  call.expect(std::max(1, call.nrhs), 1, -1);
  const EvaluationObjects objects =
      evaluationObjects({call.prhs, static_cast<std::size_t>(call.nrhs)});
  if (objects.taskGraph == nullptr) {
    noteEvaluation(nothingToEvaluate());
  } else {
    requireTrustedTasks(objects.taskGraph.get(), ClosureTasks(objects.taskGraph.get()));
    host::callMany("execute", 0,
                   std::vector<const kxArray*>{objects.executor.get(), objects.taskGraph.get(),
                                               objects.promises.get()});
  }
  for (int i = 0; i < std::max(1, call.nlhs); ++i) {
    call.out(i, gathered(call.in(i)));
  }
}

/// True if the inputs of clientforeach end with "Ordered" and a logical.
bool endsWithOrder(const Call& call) {
  const kxArray* name = call.nrhs > 2 ? call.in(call.nrhs - 2) : nullptr;
  return name != nullptr && kxGetClassID(name) == kxCHAR_CLASS && kxGetChars(name) == u"Ordered";
}

/// isStopped = clientforeach(f, x...): calls f(info, chunks...) in the client for the frames of all
/// arrays, in the order of partitions, until it returns true. With "Ordered", false at the end, in
/// the order in which they come.
void clientForeach(const Call& call) {
  const bool hasOrder = endsWithOrder(call);
  const bool isOrdered = !hasOrder || host::toLogical(call.in(call.nrhs - 1));
  const int numArrays = call.nrhs - 1 - (hasOrder ? 2 : 0);
  Value function = matrix::sharedCopy(call.in(0));
  if (!kxIsA(function.get(), kFunctionHandle)) {
    function = host::call(kFunctionHandle, {function.get()});
  }
  const Value stopped = recordForeach(function.get(), isOrdered,
                                      {call.prhs + 1, static_cast<std::size_t>(numArrays)});
  call.out(0, host::call("gather", {stopped.get()}));
}

/// rows = kv.write(path, format, overwrites, names, partitionBy, x...): the number of rows, once
/// those of the arrays are written, as the columns of a table with these names. Without names there
/// is one array.
void writeRows(const Call& call) {
  call.expect(1, 6, -1);
  const WriteTarget target =
      targetOf(host::toText(call.in(0)), host::toText(call.in(1)), host::toLogical(call.in(2)));
  const Value path = host::makeString(target.path + (target.isFolder ? "/" : ""));
  const int numArrays = call.nrhs - 5;
  const Value count = host::makeDouble(numArrays);
  const Value operation = host::call(
      kWriteOperation, {path.get(), call.in(1), call.in(2), call.in(3), call.in(4), count.get()});
  std::vector<const kxArray*> inputs{operation.get()};
  inputs.insert(inputs.end(), call.prhs + 5, call.prhs + call.nrhs);
  call.out(0, host::call("applyOperationBuiltin", inputs));
}

/// broadcast(value): an array with the value, once it is available, for every partition.
void broadcast(const Call& call) {
  call.expect(1, 1, 1);
  const bool isBroadcast = kxIsA(call.in(0), kBroadcastArray);
  call.out(
      0, isBroadcast ? matrix::sharedCopy(call.in(0)) : host::call(kBroadcastArray, {call.in(0)}));
}

}  // namespace

EvaluationObjects evaluationObjects(std::span<const kxArray* const> arrays) {
  EvaluationObjects objects;
  DistinctObjects promises;
  DistinctObjects closures;
  for (const kxArray* array : arrays) {
    if (!kxIsA(array, kLazyArray)) {
      continue;
    }
    Value promise = host::getProperty(host::getProperty(array, "ValueFuture").get(), "Promise");
    if (!host::toLogical(host::getProperty(promise.get(), "IsDone").get())) {
      takeExecutor(objects.executor, array);
      closures.add(host::getProperty(promise.get(), "Closure"));
      promises.add(std::move(promise));
    }
  }
  objects.promises = objectColumn(promises.scalars(), kClosurePromise);
  if (!closures.scalars().empty()) {
    const Value column = objectColumn(closures.scalars(), kClosure);
    objects.taskGraph = host::call(kLazyTaskGraph, {column.get()});
  }
  return objects;
}

void defineArrays(host::Session& session) {
  define(session, {.name = kPartitionedArray});
  define(session, {.name = kLocalArray,
                   .superclasses = {kPartitionedArray},
                   .properties = {readOnly("Value")},
                   .constructor = constructor(constructWrapper, 2, 2)});
  define(session, {.name = kBroadcastArray,
                   .properties = {readOnly("Value")},
                   .constructor = constructor(constructWrapper, 2, 2)});
  session.defineFunction(kBroadcast, broadcast);
  session.defineFunction("kv.write", writeRows);
  complete(session, kLazyArray,
           {method("gather", gather, 1, -1), method("clientforeach", clientForeach, 2, -1),
            method("getEvaluationObjects", getEvaluationObjects, 1, -1)});
}

}  // namespace kv::runtime
