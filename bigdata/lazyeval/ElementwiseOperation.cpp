#include "lazyeval/ElementwiseOperation.h"

#include "FunctionHandle.h"
#include "PartitionedArrayOptions.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/createManagedObject.h"
#include "lazyeval/selfCalls.h"
#include "util/CosClientTraits.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;

ElementwiseOperation::ElementwiseOperation(const ki::KalvexManagedConstructInfo& info)
    : SlicewiseFusableOperation(info) {
  // A collection may look at this object while the handle is created, so its fields must be valid.
  setFunctionHandle(ki::createManagedObject<FunctionHandle>(matrix::ArrayPtr()));
  setOptions(ki::createManagedObject<PartitionedArrayOptions>());
}

ElementwiseOperation::ElementwiseOperation(const ki::KalvexManagedConstructInfo& info,
                                           KalvexManagedPtr<PartitionedArrayOptions> options,
                                           KalvexManagedPtr<FunctionHandle> functionHandle,
                                           std::size_t numInputs, std::size_t numOutputs)
    : SlicewiseFusableOperation(info, numInputs, numOutputs, /*supportsPreview=*/true,
                                /*dependsOnOnlyHead=*/false),
      functionHandle_(selfInterface(), functionHandle) {
  setOptions(std::move(options));
  setSupportsDirectEvaluation(takesAnyNumberOfSlices(*functionHandle_));
}

ElementwiseOperation::~ElementwiseOperation() = default;

matrix::ArrayPtr ElementwiseOperation::createExecutionTasks(const kxArray* first,
                                                            const kxArray* second) {
  return callCreateExecutionTasks(*this, first, second);
}

KalvexManagedPtr<FunctionHandle> ElementwiseOperation::getCheckedFunctionHandle() const {
  return callGetCheckedFunctionHandle();
}

bool ElementwiseOperation::isSlicewiseFusable() const {
  // The default rule asks a wrapper that is always unbounded; the bound is in the own handle.
  return isSlicewiseFusableDefault() && takesAnyNumberOfSlices(*functionHandle_);
}

void ElementwiseOperation::setFunctionHandle(KalvexManagedPtr<FunctionHandle> functionHandle) {
  functionHandle_ = {selfInterface(), functionHandle};
}

void ElementwiseOperation::directEvaluateImpl(int nlhs, kxArray** plhs, int nrhs,
                                              const kxArray** prhs) {
  callOwnMethod(*this, "directEvaluateImpl", util::keptCosClient<ElementwiseOperation>(), nlhs,
                plhs, nrhs, prhs);
}

namespace {

class ElementwiseOperationCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<ElementwiseOperation> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    using ki::Access;
    util::keepCosClient<ElementwiseOperation>(client);
    ki::CosClassBuilder<ElementwiseOperation>(cls)
        .superclass("kalvex.bigdata.internal.lazyeval.SlicewiseFusableOperation")
        .constructor<>(Access::Private)
        .constructor<KalvexManagedPtr<PartitionedArrayOptions>, KalvexManagedPtr<FunctionHandle>,
                     std::size_t, std::size_t>(Access::Public)
        .property("FunctionHandle", &ElementwiseOperation::getFunctionHandle,
                  &ElementwiseOperation::setFunctionHandle, Access::Public, Access::Immutable)
        .declareMethod("createExecutionTasks", Access::Public)
        .declareMethod("directEvaluateImpl", Access::Protected)
        .declareMethod("getCheckedFunctionHandle", Access::Public)
        .method("isSlicewiseFusable", &ElementwiseOperation::isSlicewiseFusable, Access::Public);
  }

 protected:
  ElementwiseOperation* createHostImplemented(const ki::KalvexManagedConstructInfo& info) override {
    return new ElementwiseOperation(info);
  }
};

const ki::ClassKcosRegistration<ElementwiseOperationCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
