#include "lazyeval/KalvexImplementedSlicewiseFusableOperation.h"

#include "FunctionHandle.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/operationArguments.h"
#include "lazyeval/selfCalls.h"

namespace bigdata::lazyeval {

KalvexImplementedSlicewiseFusableOperation::KalvexImplementedSlicewiseFusableOperation(
    const ki::KalvexManagedConstructInfo& info, const OperationArguments& arguments,
    const kcos::COSClient* client)
    : SlicewiseFusableOperation(info, arguments.numInputs, arguments.numOutputs,
                                arguments.supportsPreview, arguments.dependsOnOnlyHead),
      client_(client) {}

matrix::ArrayPtr KalvexImplementedSlicewiseFusableOperation::createExecutionTasks(
    const kxArray* first, const kxArray* second) {
  return callCreateExecutionTasks(*this, first, second);
}

ki::KalvexManagedPtr<FunctionHandle>
KalvexImplementedSlicewiseFusableOperation::getCheckedFunctionHandle() const {
  return ki::fromArray<ki::KalvexManagedPtr<FunctionHandle>>(ask("getCheckedFunctionHandle").get());
}

bool KalvexImplementedSlicewiseFusableOperation::isSlicewiseFusable() const {
  return ki::fromArray<bool>(ask("isSlicewiseFusable").get());
}

matrix::ArrayPtr KalvexImplementedSlicewiseFusableOperation::ask(kcos::NameRef method) const {
  const matrix::ArrayPtr self = selfArray(*this);
  return ki::callHostMethod(selfInterface()->getClassObject()->getClassId(), method, client_,
                            {self.get()});
}

}  // namespace bigdata::lazyeval
