#include "lazyeval/KalvexImplementedOperation.h"

#include "lazyeval/operationArguments.h"
#include "lazyeval/selfCalls.h"

namespace bigdata::lazyeval {

KalvexImplementedOperation::KalvexImplementedOperation(const ki::KalvexManagedConstructInfo& info,
                                                       const OperationArguments& arguments,
                                                       const kcos::COSClient* client)
    : Operation(info, arguments.numInputs, arguments.numOutputs, arguments.supportsPreview,
                arguments.dependsOnOnlyHead),
      client_(client) {}

matrix::ArrayPtr KalvexImplementedOperation::createExecutionTasks(const kxArray* first,
                                                                  const kxArray* second) {
  return callCreateExecutionTasks(*this, first, second);
}

void KalvexImplementedOperation::directEvaluateImpl(int nlhs, kxArray** plhs, int nrhs,
                                                    const kxArray** prhs) {
  callOwnMethod(*this, "directEvaluateImpl", client_, nlhs, plhs, nrhs, prhs);
}

}  // namespace bigdata::lazyeval
