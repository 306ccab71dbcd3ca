#include "lazyeval/evaluationMethods.h"

#include <string>

#include "kcos/calls.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "util/CosClientTraits.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

namespace {

void callClassMethod(kcos::NameRef name, const RawCall& call) {
  using Array = LazyPartitionedArray;
  const bool isCalled = kcos::omCallMethod(
      kcos::internal::makeInterned(Array::kHostClassName), kcos::internal::makeInterned(name),
      util::keptCosClient<Array>(), call.nlhs, call.plhs, call.nrhs, call.prhs, false);
  if (!isCalled) {
    throwInternalError("Could not find method " + std::string(Array::kHostClassName.text()) + "/" +
                       std::string(name.text()));
  }
}

}  // namespace

void gather(const RawCall& call) { callClassMethod("gather", call); }

void clientforeach(const RawCall& call) { callClassMethod("clientforeach", call); }

void vertcatpartitions(const RawCall& call) { callClassMethod("vertcatpartitions", call); }

}  // namespace bigdata::lazyeval
