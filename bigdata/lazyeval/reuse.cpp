#include "lazyeval/reuse.h"

#include <cassert>
#include <vector>

#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/makeOperation.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

/// The key of the cache node that produces the array's value.
ArrayPtr cacheEntryKey(const LazyPartitionedArray& array) {
  const ArrayPtr operation = ki::toArray(array.promise().getClosure()->getOperation());
  assert(kxIsA(operation.get(), "kalvex.bigdata.internal.lazyeval.CacheOperation"));
  return ki::readHostProperty(operation.get(), "CacheEntryKey");
}

}  // namespace

void addCacheOperation(const KalvexManagedPtr<LazyPartitionedArray>& array) {
  auto operation = makeOperation("kalvex.bigdata.internal.lazyeval.CacheOperation");
  std::vector<KalvexManagedPtr<ClosureFuture>> inputs{array->getValueFuture().lock()};
  const auto closure = ki::createManagedObject<Closure>(std::move(inputs), std::move(operation));
  ClosurePromise& cached = *closure->getOutputPromises().at(0);
  cached.setMetadata(matrix::sharedCopy(array->hGetMetadata()));
  array->setValueFuture(cached.getFuture().lock());
}

void markforreuse(const RawCall& call) {
  assert(call.plhs != nullptr);
  for (int i = 0; i < call.nrhs; ++i) {
    const auto array = ki::fromArray<KalvexManagedPtr<LazyPartitionedArray>>(call.prhs[i]);
    addCacheOperation(array);
    if (i <= call.nlhs) {
      call.plhs[i] = matrix::to_kalvex(ki::toArray(array));
    }
  }
}

void updateforreuse(LazyPartitionedArray& old, KalvexManagedPtr<LazyPartitionedArray> successor) {
  if (old.getValueFuture()->isDone() || successor->getValueFuture()->isDone()) {
    addCacheOperation(successor);
    return;
  }
  const ArrayPtr oldKey = cacheEntryKey(old);
  addCacheOperation(successor);
  ki::callHostForEffect("setOldKey", {cacheEntryKey(*successor).get(), oldKey.get()});
}

}  // namespace bigdata::lazyeval
