#include "lazyeval/ClosureFuture.h"

#include <utility>

#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "lazyeval/ClosurePromise.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;

ClosureFuture::ClosureFuture(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

ClosureFuture::ClosureFuture(const ki::KalvexManagedConstructInfo& info,
                             KalvexManagedPtr<ClosurePromise> promise)
    : KalvexManagedObject(info), promise_(selfInterface(), promise) {}

void ClosureFuture::setPromise(KalvexManagedPtr<ClosurePromise> promise) {
  promise_ = {selfInterface(), promise};
}

std::u16string ClosureFuture::getIdStr() const { return u"future_" + promise_->getId(); }

bool ClosureFuture::isDone() const { return promise_->isDone(); }

const kxArray* ClosureFuture::getValue() const { return promise_->getCachedValue(); }

namespace {

class ClosureFutureCosClassInfo final : public ki::KalvexManagedCosClassInfo<ClosureFuture> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using ki::Access;
    ki::CosClassBuilder<ClosureFuture>(cls)
        .constructor<>(Access::Private)
        .property("Promise", &ClosureFuture::getPromise, &ClosureFuture::setPromise, Access::Public,
                  Access::Private)
        .readOnly("IdStr", &ClosureFuture::getIdStr)
        .readOnly("IsDone", &ClosureFuture::isDone)
        .readOnly("Value", &ClosureFuture::getValue);
  }
};

const ki::ClassKcosRegistration<ClosureFutureCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
