#include "lazyeval/operationArguments.h"

#include "ki/checkCounts.h"
#include "ki/conversions.h"

namespace bigdata::lazyeval {

OperationArguments parseOperationArguments(int nrhs, const kxArray** prhs) {
  ki::checkInputs(nrhs, 2, 4);
  OperationArguments arguments;
  if (nrhs > 3) {
    arguments.dependsOnOnlyHead = ki::fromArray<bool>(prhs[3]);
  }
  if (nrhs > 2) {
    arguments.supportsPreview = ki::fromArray<bool>(prhs[2]);
  }
  arguments.numOutputs = ki::fromArray<std::size_t>(prhs[1]);
  arguments.numInputs = ki::fromArray<std::size_t>(prhs[0]);
  return arguments;
}

}  // namespace bigdata::lazyeval
