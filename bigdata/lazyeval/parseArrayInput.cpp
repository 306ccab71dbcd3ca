#include "lazyeval/parseArrayInput.h"

#include <string>
#include <utility>

#include "FunctionHandle.h"
#include "PartitionMetadata.h"
#include "PartitionedArrayOptions.h"
#include "executor/StrategyAlignment.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/arrayMethods.h"
#include "util/ErrorIds.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

using LazyArrayPtr = KalvexManagedPtr<LazyPartitionedArray>;

constexpr kcos::NameRef kBroadcastArray = "kalvex.bigdata.internal.BroadcastArray";

bool isLazyArray(const kxArray* value) {
  return kxIsA(value, ki::classKey<LazyPartitionedArray>());
}

ArrayPtr valueProperty(const kxArray* wrapper) { return ki::readHostProperty(wrapper, "Value"); }

ParsedArrayInput parseLazyArray(const kxArray* input) {
  const auto array = ki::fromArray<LazyArrayPtr>(input);
  return {matrix::sharedCopy(array->getStoredExecutor()),
          array->getPartitionMetadata()->getStrategy().lock(), array->getValueFuture().lock()};
}

ParsedArrayInput parseConstant(ArrayPtr value) {
  return {nullptr, nullptr, wrapConstant(std::move(value))};
}

/// A new array with the broadcast strategy, whose value is a BroadcastArray around that of `array`.
LazyArrayPtr createBroadcastFromLazy(const kxArray* array) {
  const ArrayPtr name = matrix::create(kBroadcastArray.text());
  auto options = ki::createManagedObject<PartitionedArrayOptions>();
  auto wrap = ki::createManagedObject<FunctionHandle>(ki::callHost("str2func", {name.get()}));
  kxArray* output = nullptr;
  clientfun(std::move(options), std::move(wrap), {1, &output, 1, &array});
  return ki::fromArray<LazyArrayPtr>(matrix::from_kalvex(output).get());
}

void agreeOnExecutor(ArrayPtr& running, ArrayPtr executor) {
  if (executor == nullptr) {
    return;
  }
  if (running == nullptr) {
    running = std::move(executor);
    return;
  }
  if (kxIsSameValue(running.get(), executor.get())) {
    return;
  }
  // An implementation that refuses a pair raises an error; the result itself is ignored.
  if (ki::callHost("checkSameExecutor", {running.get(), executor.get()}) == nullptr) {
    foundation::core::except::raise<KALVEX::bigdata::array::IncompatibleTallExecutor>();
  }
}

}  // namespace

ParsedArrayInput parseArrayInput(const kxArray* input) {
  if (!kcos::omIsKCOS(input)) {
    return parseConstant(matrix::sharedCopy(input));
  }
  if (isLazyArray(input)) {
    return parseLazyArray(input);
  }
  if (kxIsA(input, "kalvex.bigdata.internal.LocalArray")) {
    return parseConstant(valueProperty(input));
  }
  if (kxIsA(input, kBroadcastArray)) {
    if (const ArrayPtr value = valueProperty(input); isLazyArray(value.get())) {
      return {nullptr, nullptr, createBroadcastFromLazy(value.get())->getValueFuture().lock()};
    }
  }
  if (kxIsA(input, "kalvex.bigdata.internal.PartitionedArray")) {
    throwInternalError(
        "Cannot mix two different implementations of PartitionedArray: "
        "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray, " +
        kxGetClassName(input));
  }
  return parseConstant(matrix::sharedCopy(input));
}

ParsedArrayInputs parseArrayInputs(int nrhs, const kxArray** prhs) {
  ParsedArrayInputs parsed;
  parsed.futures.reserve(static_cast<std::size_t>(nrhs));
  executor::StrategyAlignment alignment;
  for (int i = 0; i < nrhs; ++i) {
    ParsedArrayInput input = parseArrayInput(prhs[i]);
    parsed.futures.push_back(std::move(input.future));
    alignment.add(input.strategy);
    agreeOnExecutor(parsed.executor, std::move(input.executor));
  }
  parsed.strategy = alignment.result();
  return parsed;
}

KalvexManagedPtr<ClosureFuture> wrapConstant(ArrayPtr value) {
  return ki::createManagedObject<ClosurePromise>(std::move(value))->getFuture().lock();
}

const kxArray* unwrapLocalArray(const kxArray* input, ArrayPtr& holder) {
  if (!kcos::omIsKCOS(input) || !kxIsA(input, "kalvex.bigdata.internal.LocalArray")) {
    return input;
  }
  holder = valueProperty(input);
  return holder.get();
}

}  // namespace bigdata::lazyeval
