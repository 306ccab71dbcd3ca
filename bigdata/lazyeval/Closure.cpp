#include "lazyeval/Closure.h"

#include <algorithm>
#include <cassert>
#include <string>
#include <utility>

#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/createManagedObject.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/Operation.h"
#include "util/ErrorIds.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using ki::PropertyPtr;

namespace {

/// Whether an output is partition independent, according to the flags given to a constructor.
///
/// Requires: `flags` was checked against the number of outputs.
bool flagOfOutput(const ki::typed_row_vector<bool>& flags, std::size_t output) {
  if (!flags) {
    return true;
  }
  assert(flags.size() == 1 || output < flags.size());
  return flags[flags.size() == 1 ? 0 : output];
}

/// One link from `owner` to each of `targets`, in order; the old links are released first.
template <class T>
void replaceLinks(std::vector<PropertyPtr<T>>& links, kcos::COSInterface* owner,
                  const std::vector<KalvexManagedPtr<T>>& targets) {
  links.clear();
  links.reserve(targets.size());
  for (const KalvexManagedPtr<T>& target : targets) {
    links.emplace_back(owner, target);
  }
}

}  // namespace

Closure::Closure(const ki::KalvexManagedConstructInfo& info) : KalvexManagedObject(info) {}

Closure::Closure(const ki::KalvexManagedConstructInfo& info,
                 std::vector<KalvexManagedPtr<ClosureFuture>> inputFutures,
                 KalvexManagedPtr<Operation> operation)
    : Closure(info, std::move(inputFutures), std::move(operation), {}) {}

Closure::Closure(const ki::KalvexManagedConstructInfo& info,
                 std::vector<KalvexManagedPtr<ClosureFuture>> inputFutures,
                 KalvexManagedPtr<Operation> operation,
                 ki::typed_row_vector<bool> isPartitionIndependent)
    : KalvexManagedObject(info),
      id_(util::nextUniqueId<Closure>()),
      operation_(selfInterface(), operation) {
  setInputFutures(std::move(inputFutures));
  const KalvexManagedPtr<Closure> self = getSelf<Closure>();

  const std::size_t numOutputs = operation_->getNumOutputs();
  if (numOutputs > kMaxOutputs) {
    foundation::core::except::raise<KALVEX::CountTooLarge>(std::to_string(numOutputs),
                                                           std::to_string(kMaxOutputs));
  }
  outputPromises_.reserve(numOutputs);
  if (isPartitionIndependent && isPartitionIndependent.size() != 1 &&
      isPartitionIndependent.size() != numOutputs) {
    throwInternalError("isPartitionIndependent must be scalar or be of size as number of outputs");
  }
  for (std::size_t i = 0; i < numOutputs; ++i) {
    outputPromises_.emplace_back(selfInterface(),
                                 ki::createManagedObject<ClosurePromise>(
                                     self, i + 1, flagOfOutput(isPartitionIndependent, i)));
  }
}

std::u16string Closure::getId() const { return id_.text(); }

void Closure::setId(std::u16string id) { id_ = util::UniqueId(std::move(id)); }

std::u16string Closure::getIdStr() const { return u"closure_" + getId(); }

void Closure::setOperation(KalvexManagedPtr<Operation> operation) {
  operation_ = {selfInterface(), operation};
}

void Closure::setInputFutures(std::vector<KalvexManagedPtr<ClosureFuture>> futures) {
  replaceLinks(inputFutures_, selfInterface(), futures);
}

void Closure::setOutputPromises(std::vector<KalvexManagedPtr<ClosurePromise>> promises) {
  replaceLinks(outputPromises_, selfInterface(), promises);
}

std::vector<KalvexManagedPtr<Closure>> Closure::getDirectDependencies() const {
  std::vector<KalvexManagedPtr<Closure>> dependencies;
  dependencies.reserve(inputFutures_.size());
  for (const PropertyPtr<ClosureFuture>& future : inputFutures_) {
    const ClosurePromise& promise = *future->getPromise();
    if (promise.isDone()) {
      continue;
    }
    if (KalvexManagedPtr<Closure> closure = promise.getClosure().lock()) {
      dependencies.push_back(std::move(closure));
    }
  }
  const auto address = [](const KalvexManagedPtr<Closure>& closure) { return closure.get(); };
  std::ranges::sort(dependencies, std::ranges::less(), address);
  const auto repeated = std::ranges::unique(dependencies, std::ranges::equal_to(), address);
  dependencies.erase(repeated.begin(), repeated.end());
  return dependencies;
}

namespace {

class ClosureCosClassInfo final : public ki::KalvexManagedCosClassInfo<Closure> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using ki::Access;
    using Futures = std::vector<KalvexManagedPtr<ClosureFuture>>;
    ki::CosClassBuilder<Closure>(cls)
        .constructor<>(Access::Private)
        .constructor<Futures, KalvexManagedPtr<Operation>>(Access::Public)
        .constructor<Futures, KalvexManagedPtr<Operation>, ki::typed_row_vector<bool>>(
            Access::Public)
        .property("Id", &Closure::getId, &Closure::setId, Access::Public, Access::Private)
        .readOnly("IdStr", &Closure::getIdStr)
        .property("Operation", &Closure::getOperation, &Closure::setOperation, Access::Public,
                  Access::Private)
        .property("InputFutures", &Closure::getInputFutures, &Closure::setInputFutures,
                  Access::Public, Access::Private)
        .property("OutputPromises", &Closure::getOutputPromises, &Closure::setOutputPromises,
                  Access::Public, Access::Private)
        .method("getDirectDependencies", &Closure::getDirectDependencies, Access::Public);
  }
};

const ki::ClassKcosRegistration<ClosureCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
