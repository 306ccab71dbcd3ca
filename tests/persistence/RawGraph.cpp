#include "RawGraph.h"

#include <string>

namespace kv::test {

namespace {

const std::string kPackage = "kalvex.bigdata.internal.lazyeval.";

}  // namespace

void RawGraph::addTo(RawFile& file) const {
  const auto future = file.shape(kPackage + "ClosureFuture", {"Promise"});
  const auto promise = file.shape(kPackage + "ClosurePromise", {"Id", "Closure", "ArgoutIndex",
                                                                "Future", "CachedValue", "IsDone"});
  const auto closure =
      file.shape(kPackage + "Closure", {"Id", "Operation", "InputFutures", "OutputPromises"});
  const auto operationShape = file.shape("TestOperation", {"NumInputs", "NumOutputs"});
  const Reference one = file.number(1);
  file.object(future, {futurePromise});
  file.object(promise, {file.text("p_1"), promiseClosure, file.number(outputIndex), promiseFuture,
                        Reference(), file.flag(false)});
  file.object(closure, {file.text("c_1"), operation, input, output});
  file.object(operationShape, {one, one});
  file.object(future, {kInputPromise});
  file.object(promise,
              {file.text("p_2"), Reference(), file.number(0), kInput, one, file.flag(true)});
  file.object(file.shape("user.Thing"));
  file.root(kFuture);
}

}  // namespace kv::test
