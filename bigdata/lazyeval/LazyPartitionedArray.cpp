#include "lazyeval/LazyPartitionedArray.h"

#include <utility>

#include "PartitionMetadata.h"
#include "executor/PartitionStrategy.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

LazyPartitionedArray::LazyPartitionedArray(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

LazyPartitionedArray::LazyPartitionedArray(const ki::KalvexManagedConstructInfo& info,
                                           ArrayConstructionArgs args)
    : KalvexManagedObject(info),
      valueFuture_(selfInterface(), args.future),
      partitionMetadata_(selfInterface(), args.metadata),
      executor_(ki::adoptPropertyArray(selfInterface(), std::move(args.executor))) {
  ki::callHostForEffect("keepAlive", {executor_.get()});
}

void LazyPartitionedArray::setValueFuture(KalvexManagedPtr<ClosureFuture> future) {
  valueFuture_ = {selfInterface(), future};
}

KalvexManagedPtr<PartitionMetadata> LazyPartitionedArray::getPartitionMetadata() const {
  return partitionMetadata_.lock();
}

void LazyPartitionedArray::setPartitionMetadata(KalvexManagedPtr<PartitionMetadata> metadata) {
  partitionMetadata_ = {selfInterface(), metadata};
}

ArrayPtr LazyPartitionedArray::getExecutor() const {
  ArrayPtr overriding =
      ki::callHost("kalvex.bigdata.internal.executor.PartitionedArrayExecutor.override");
  if (!kxIsEmpty(overriding.get())) {
    return overriding;
  }
  return matrix::sharedCopy(executor_.get());
}

bool LazyPartitionedArray::isValid() const {
  return ki::fromArray<bool>(ki::callHost("checkIsValidNow", {getExecutor().get()}).get());
}

std::size_t LazyPartitionedArray::numpartitions() const {
  const ArrayPtr executor = getExecutor();
  const ArrayPtr strategy = ki::toArray(partitionMetadata_->getStrategy());
  return ki::fromArray<std::size_t>(
      ki::callHost("numPartitions", {executor.get(), strategy.get()}).get());
}

const kxArray* LazyPartitionedArray::hGetMetadata() const { return promise().getMetadata(); }

void LazyPartitionedArray::hSetMetadata(ArrayPtr metadata) {
  promise().setMetadata(std::move(metadata));
}

std::tuple<const kxArray*, bool> LazyPartitionedArray::getCachedPreviewData() const {
  if (valueFuture_->isDone()) {
    throwInternalError("Requested cache preview data on an array that is already complete");
  }
  return {previewData_.get(), isPreviewTruncated_};
}

void LazyPartitionedArray::setCachedPreviewData(ArrayPtr data, bool isTruncated) {
  if (valueFuture_->isDone()) {
    throwInternalError("Setting cache preview data on an array that is already complete");
  }
  if (hasPreviewData_) {
    throwInternalError("Setting cache preview data on an array that already has it");
  }
  previewData_ = ki::adoptPropertyArray(selfInterface(), std::move(data));
  isPreviewTruncated_ = isTruncated;
  hasPreviewData_ = true;
}

ClosurePromise& LazyPartitionedArray::promise() const { return *valueFuture_->getPromise(); }

}  // namespace bigdata::lazyeval
