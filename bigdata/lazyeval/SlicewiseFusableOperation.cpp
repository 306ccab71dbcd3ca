#include "lazyeval/SlicewiseFusableOperation.h"

#include <cmath>
#include <memory>

#include "FunctionHandle.h"
#include "PartitionedArrayOptions.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "lazyeval/KalvexImplementedSlicewiseFusableOperation.h"
#include "lazyeval/operationArguments.h"
#include "lazyeval/selfCalls.h"

namespace bigdata::lazyeval {

SlicewiseFusableOperation::SlicewiseFusableOperation(const ki::KalvexManagedConstructInfo& info)
    : SlicewiseFusableOperation(info, 0, 0, false, false) {}

SlicewiseFusableOperation::SlicewiseFusableOperation(const ki::KalvexManagedConstructInfo& info,
                                                     std::size_t numInputs, std::size_t numOutputs,
                                                     bool supportsPreview, bool dependsOnOnlyHead)
    : Operation(info, numInputs, numOutputs, supportsPreview, dependsOnOnlyHead) {}

bool SlicewiseFusableOperation::isSlicewiseFusableDefault() const {
  if (getOptions() && getOptions()->getRequiresRandState()) {
    return false;
  }
  return takesAnyNumberOfSlices(*getCheckedFunctionHandle());
}

ki::KalvexManagedPtr<FunctionHandle> SlicewiseFusableOperation::callGetCheckedFunctionHandle()
    const {
  return ki::createManagedObject<FunctionHandle>(
      ki::callHost("getCheckedFunctionHandle", {selfArray(*this).get()}));
}

bool takesAnyNumberOfSlices(const FunctionHandle& function) {
  return std::isinf(function.getMaxNumSlices());
}

namespace {

class SlicewiseFusableOperationCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<SlicewiseFusableOperation> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    using ki::Access;
    using Implemented = KalvexImplementedSlicewiseFusableOperation;
    client_ = client;
    ki::CosClassBuilder<SlicewiseFusableOperation>(cls)
        .superclass("kalvex.bigdata.internal.lazyeval.Operation")
        .constructorFrom(
            [client](const ki::KalvexManagedConstructInfo& info) {
              return std::unique_ptr<SlicewiseFusableOperation>(
                  new Implemented(info, OperationArguments{}, client));
            },
            Access::Private)
        .variadicConstructor(
            [client](const ki::KalvexManagedConstructInfo& info, int nrhs, const kxArray** prhs) {
              return std::unique_ptr<SlicewiseFusableOperation>(
                  new Implemented(info, parseOperationArguments(nrhs, prhs), client));
            },
            Access::Public)
        .method("isSlicewiseFusableDefault", &SlicewiseFusableOperation::isSlicewiseFusableDefault,
                Access::Public)
        .abstractMethod("isSlicewiseFusable", Access::Public)
        .abstractMethod("getCheckedFunctionHandle", Access::Public)
        .abstractMethod("createExecutionTasks", Access::Public);
  }

 protected:
  SlicewiseFusableOperation* createHostImplemented(
      const ki::KalvexManagedConstructInfo& info) override {
    return new KalvexImplementedSlicewiseFusableOperation(info, OperationArguments{}, client_);
  }

 private:
  const kcos::COSClient* client_ = nullptr;
};

const ki::ClassKcosRegistration<SlicewiseFusableOperationCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
