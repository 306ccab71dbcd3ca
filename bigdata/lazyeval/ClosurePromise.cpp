#include "lazyeval/ClosurePromise.h"

#include <utility>

#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/createManagedObject.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureFuture.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;

ClosurePromise::ClosurePromise(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

ClosurePromise::ClosurePromise(const ki::KalvexManagedConstructInfo& info,
                               KalvexManagedPtr<Closure> closure, std::size_t argoutIndex,
                               bool isPartitionIndependent)
    : KalvexManagedObject(info),
      id_(util::nextUniqueId<ClosurePromise>()),
      closure_(selfInterface(), closure),
      argoutIndex_(argoutIndex),
      isPartitionIndependent_(isPartitionIndependent) {
  setFuture(ki::createManagedObject<ClosureFuture>(getSelf<ClosurePromise>()));
}

ClosurePromise::ClosurePromise(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr value)
    : KalvexManagedObject(info),
      id_(util::nextUniqueId<ClosurePromise>()),
      isDone_(true),
      cachedValue_(ki::adoptPropertyArray(selfInterface(), std::move(value))) {
  setFuture(ki::createManagedObject<ClosureFuture>(getSelf<ClosurePromise>()));
}

std::u16string ClosurePromise::getId() const { return id_.text(); }

void ClosurePromise::setId(std::u16string id) { id_ = util::UniqueId(std::move(id)); }

std::u16string ClosurePromise::getIdStr() const { return u"promise_" + getId(); }

void ClosurePromise::setClosure(KalvexManagedPtr<Closure> closure) {
  closure_ = {selfInterface(), closure};
}

void ClosurePromise::setFuture(KalvexManagedPtr<ClosureFuture> future) {
  future_ = {selfInterface(), future};
}

void ClosurePromise::setCachedValue(matrix::ArrayPtr value) {
  cachedValue_ = ki::adoptPropertyArray(selfInterface(), std::move(value));
}

void ClosurePromise::setMetadata(matrix::ArrayPtr metadata) {
  metadata_ = ki::adoptPropertyArray(selfInterface(), std::move(metadata));
}

void ClosurePromise::setValue(matrix::ArrayPtr value) {
  if (isDone_) {
    throwInternalError("Attempted to complete a ClosurePromise that is already complete.");
  }
  setCachedValue(std::move(value));
  isDone_ = true;
  if (isPartitionIndependent_) {
    releaseClosure();
  }
}

void ClosurePromise::setPartitionIndependent(bool flag) {
  if (!flag && isDone_) {
    throwInternalError(
        "Attempted to remove the partition independent flag on a ClosurePromise that is already "
        "complete.");
  }
  isPartitionIndependent_ = flag;
  if (flag && isDone_) {
    releaseClosure();
  }
}

void ClosurePromise::swap(KalvexManagedPtr<ClosurePromise> other) {
  const KalvexManagedPtr<ClosurePromise> self = getSelf<ClosurePromise>();
  const KalvexManagedPtr<ClosureFuture> ownFuture = future_.lock();

  setFuture(other->future_.lock());
  other->setFuture(ownFuture);
  future_->setPromise(self);
  other->future_->setPromise(other);

  // Both writes go to this promise, so neither Metadata changes in the end.
  matrix::ArrayPtr ownMetadata = matrix::sharedCopy(getMetadata());
  setMetadata(matrix::sharedCopy(other->getMetadata()));
  setMetadata(std::move(ownMetadata));
}

void ClosurePromise::onLoaded() {
  if (!isPartitionIndependent_) {
    isDone_ = false;
    cachedValue_.reset();
  }
}

namespace {

class ClosurePromiseCosClassInfo final : public ki::KalvexManagedCosClassInfo<ClosurePromise> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using ki::Access;
    using Promise = ClosurePromise;
    ki::CosClassBuilder<ClosurePromise>(cls)
        .constructor<>(Access::Private)
        .constructor<matrix::ArrayPtr>(Access::Public)
        .property("Id", &Promise::getId, &Promise::setId, Access::Public, Access::Private)
        .readOnly("IdStr", &Promise::getIdStr)
        .property("Closure", &Promise::getClosure, &Promise::setClosure, Access::Public,
                  Access::Private)
        .property("ArgoutIndex", &Promise::getArgoutIndex, &Promise::setArgoutIndex, Access::Public,
                  Access::Private)
        .property("Future", &Promise::getFuture, &Promise::setFuture, Access::Public,
                  Access::Private)
        .property("CachedValue", &Promise::getCachedValue, &Promise::setCachedValue, Access::Public,
                  Access::Private)
        .property("IsDone", &Promise::isDone, &Promise::setIsDone, Access::Public, Access::Private)
        .property("IsPartitionIndependent", &Promise::isPartitionIndependent,
                  &Promise::setIsPartitionIndependent, Access::Public, Access::Private)
        .property("Metadata", &Promise::getMetadata, &Promise::setMetadata, Access::Public,
                  Access::Private)
        .method("hGetMetadata", &Promise::getMetadata, Access::Public)
        .method("hSetMetadata", &Promise::setMetadata, Access::Public)
        .method("setValue", &Promise::setValue, Access::Public)
        .method("setPartitionIndependent", &Promise::setPartitionIndependent, Access::Public)
        .method("swap", &Promise::swap, Access::Public);
  }

  void instanceLoaded(kcos::COSInterface* object) override {
    KalvexManagedPtr<ClosurePromise>(
        static_cast<ClosurePromise*>(object->getInstanceData(ki::classKey<ClosurePromise>())),
        object)
        ->onLoaded();
  }
};

const ki::ClassKcosRegistration<ClosurePromiseCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
