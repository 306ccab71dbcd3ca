#include "RawGraph.h"

#include <string>

namespace kv::test {
namespace {

const std::string kPackage = "kalvex.bigdata.internal.lazyeval.";

Reference text(RawFile& file, std::string_view characters) {
  return file.full(
      kxSTRING_CLASS, {1, 1},
      packed(static_cast<std::uint32_t>(characters.size() + 1)) + std::string(characters),
      ValueForm::Narrow);
}

Reference flag(RawFile& file, bool value) {
  return file.value({kxLOGICAL_CLASS, static_cast<std::uint8_t>(ValueForm::Inline), 0, 0, value});
}

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
  file.object(promise, {text(file, "p_1"), promiseClosure, file.number(outputIndex), promiseFuture,
                        Reference(), flag(file, false)});
  file.object(closure, {text(file, "c_1"), operation, input, output});
  file.object(operationShape, {one, one});
  file.object(future, {kInputPromise});
  file.object(promise,
              {text(file, "p_2"), Reference(), file.number(0), kInput, one, flag(file, true)});
  file.object(file.shape("user.Thing"));
  file.root(kFuture);
}

}  // namespace kv::test
