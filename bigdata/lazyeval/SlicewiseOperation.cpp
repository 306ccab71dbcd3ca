#include "lazyeval/SlicewiseOperation.h"

#include <utility>

#include "FunctionHandle.h"
#include "PartitionedArrayOptions.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/createManagedObject.h"
#include "lazyeval/selfCalls.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;

SlicewiseOperation::SlicewiseOperation(const ki::KalvexManagedConstructInfo& info)
    : SlicewiseFusableOperation(info) {
  // A collection may look at this object while the handle is created, so its fields must be valid.
  setFunctionHandle(ki::createManagedObject<FunctionHandle>(matrix::ArrayPtr()));
  setOptions(ki::createManagedObject<PartitionedArrayOptions>());
}

SlicewiseOperation::SlicewiseOperation(const ki::KalvexManagedConstructInfo& info,
                                       KalvexManagedPtr<PartitionedArrayOptions> options,
                                       KalvexManagedPtr<FunctionHandle> functionHandle,
                                       std::size_t numInputs, std::size_t numOutputs,
                                       bool allowTallDimExpansion)
    : SlicewiseFusableOperation(info, numInputs, numOutputs, /*supportsPreview=*/true,
                                /*dependsOnOnlyHead=*/false),
      functionHandle_(selfInterface(), functionHandle),
      allowTallDimExpansion_(allowTallDimExpansion) {
  setOptions(std::move(options));
}

SlicewiseOperation::SlicewiseOperation(const ki::KalvexManagedConstructInfo& info,
                                       KalvexManagedPtr<PartitionedArrayOptions> options,
                                       KalvexManagedPtr<FunctionHandle> functionHandle,
                                       std::size_t numInputs, std::size_t numOutputs)
    : SlicewiseOperation(info, std::move(options), std::move(functionHandle), numInputs, numOutputs,
                         /*allowTallDimExpansion=*/true) {}

SlicewiseOperation::~SlicewiseOperation() = default;

matrix::ArrayPtr SlicewiseOperation::createExecutionTasks(const kxArray* first,
                                                          const kxArray* second) {
  return callCreateExecutionTasks(*this, first, second);
}

KalvexManagedPtr<FunctionHandle> SlicewiseOperation::getCheckedFunctionHandle() const {
  return callGetCheckedFunctionHandle();
}

bool SlicewiseOperation::isSlicewiseFusable() const {
  // The default rule asks a wrapper that is always unbounded; the bound is in the own handle.
  return isSlicewiseFusableDefault() && takesAnyNumberOfSlices(*functionHandle_) &&
         allowTallDimExpansion_;
}

void SlicewiseOperation::setFunctionHandle(KalvexManagedPtr<FunctionHandle> functionHandle) {
  functionHandle_ = {selfInterface(), functionHandle};
}

namespace {

class SlicewiseOperationCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<SlicewiseOperation> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using ki::Access;
    using Options = KalvexManagedPtr<PartitionedArrayOptions>;
    using Function = KalvexManagedPtr<FunctionHandle>;
    ki::CosClassBuilder<SlicewiseOperation>(cls)
        .superclass("kalvex.bigdata.internal.lazyeval.SlicewiseFusableOperation")
        .constructor<>(Access::Private)
        .constructor<Options, Function, std::size_t, std::size_t, bool>(Access::Public)
        .constructor<Options, Function, std::size_t, std::size_t>(Access::Public)
        .property("FunctionHandle", &SlicewiseOperation::getFunctionHandle,
                  &SlicewiseOperation::setFunctionHandle, Access::Public, Access::Immutable)
        .property("AllowTallDimExpansion", &SlicewiseOperation::allowsTallDimExpansion,
                  &SlicewiseOperation::setAllowTallDimExpansion, Access::Public, Access::Immutable)
        .declareMethod("createExecutionTasks", Access::Public)
        .declareMethod("getCheckedFunctionHandle", Access::Public)
        .method("isSlicewiseFusable", &SlicewiseOperation::isSlicewiseFusable, Access::Public);
  }

  bool isSealed() const override { return true; }
};

const ki::ClassKcosRegistration<SlicewiseOperationCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
