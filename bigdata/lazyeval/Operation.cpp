// Direct evaluation runs user code inside the session. Two things must survive that: the session's
// random stream, which a guard restores even if the code raises an error, and the operation itself,
// which the code may delete.

#include "lazyeval/Operation.h"

#include <memory>
#include <string>
#include <utility>

#include "InternalStackFrame.h"
#include "PartitionedArrayOptions.h"
#include "kcos/class.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/KalvexImplementedOperation.h"
#include "lazyeval/operationArguments.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

namespace {

/// Saves the session's random stream while another one is in force, and restores it.
class GlobalStreamGuard {
 public:
  GlobalStreamGuard() = default;
  GlobalStreamGuard(const GlobalStreamGuard&) = delete;
  GlobalStreamGuard& operator=(const GlobalStreamGuard&) = delete;
  ~GlobalStreamGuard() {
    if (previous_ == nullptr) {
      return;
    }
    try {
      ki::callHostForEffect("RandStream.setGlobalStream", {previous_.get()});
    } catch (...) {
      // The caller must see what the guarded code raised or returned.
    }
  }

  /// Puts in force the stream that the factory of `options` makes for partition 1.
  void usePartitionStream(const ki::KalvexManagedPtr<PartitionedArrayOptions>& options) {
    previous_ = ki::callHost("RandStream.getGlobalStream");
    const matrix::ArrayPtr factory = matrix::sharedCopy(options->getRandStreamFactory());
    const matrix::ArrayPtr partition = matrix::from_kalvex(kxCreateDoubleScalar(1.0));
    const matrix::ArrayPtr stream =
        ki::callHost("getRandStreamForPartition", {factory.get(), partition.get()});
    ki::callHostForEffect("RandStream.setGlobalStream", {stream.get()});
  }

 private:
  matrix::ArrayPtr previous_;
};

}  // namespace

Operation::Operation(const ki::KalvexManagedConstructInfo& info, std::size_t numInputs,
                     std::size_t numOutputs, bool supportsPreview, bool dependsOnOnlyHead)
    : KalvexManagedObject(info),
      numInputs_(numInputs),
      numOutputs_(numOutputs),
      supportsPreview_(supportsPreview),
      dependsOnOnlyHead_(dependsOnOnlyHead) {
  setStack(getUserStack());
}

Operation::~Operation() = default;

void Operation::directEvaluate(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  const ki::KalvexManagedPtr<Operation> self = getSelf<Operation>();
  GlobalStreamGuard guard;
  if (options_ && options_->getRequiresRandState()) {
    guard.usePartitionStream(options_.lock());
  }
  self->directEvaluateImpl(nlhs, plhs, nrhs, prhs);  // the call may have deleted this object
}

matrix::ArrayPtr Operation::addGlobalState(matrix::ArrayPtr processorFactory) const {
  if (!options_ || !options_->getRequiresRandState()) {
    return processorFactory;
  }
  return ki::callHost("kalvex.bigdata.internal.lazyeval.GlobalStateProcessorFactory",
                      {processorFactory.get(), ki::toArray(options_).get()});
}

void Operation::directEvaluateImpl(int, kxArray**, int, const kxArray**) {
  throwInternalError(std::string(selfInterface()->getClassObject()->getName()) +
                     "does not support direct evaluation.");
}

void Operation::setOptions(ki::KalvexManagedPtr<PartitionedArrayOptions> options) {
  options_ = {selfInterface(), options};
}

void Operation::setStack(matrix::ArrayPtr stack) {
  stack_ = ki::adoptPropertyArray(selfInterface(), std::move(stack));
}

namespace {

/// Besides its table, the class keeps the client with whose rights the operations of its subclasses
/// call back.
class OperationCosClassInfo final : public ki::KalvexManagedCosClassInfo<Operation> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    using ki::Access;
    client_ = client;
    ki::CosClassBuilder<Operation>(cls)
        .variadicConstructor(
            [client](const ki::KalvexManagedConstructInfo& info, int nrhs, const kxArray** prhs) {
              return std::unique_ptr<Operation>(new KalvexImplementedOperation(
                  info, parseOperationArguments(nrhs, prhs), client));
            },
            Access::Protected)
        .property("NumInputs", &Operation::getNumInputs, &Operation::setNumInputs, Access::Public,
                  Access::Private)
        .property("NumOutputs", &Operation::getNumOutputs, &Operation::setNumOutputs,
                  Access::Public, Access::Private)
        .property("SupportsPreview", &Operation::supportsPreview, &Operation::setSupportsPreview,
                  Access::Public, Access::Private)
        .property("DependsOnOnlyHead", &Operation::dependsOnOnlyHead,
                  &Operation::setDependsOnOnlyHead, Access::Public, Access::Private)
        .property("SupportsDirectEvaluation", &Operation::supportsDirectEvaluation,
                  &Operation::setSupportsDirectEvaluation, Access::Public, Access::Protected)
        .property("Options", &Operation::getOptions, &Operation::setOptions, Access::Protected,
                  Access::Protected)
        .property("Stack", &Operation::getStack, &Operation::setStack, Access::Public,
                  Access::Private)
        .variadicMethod("directEvaluate", &Operation::directEvaluate, Access::Public)
        .method("addGlobalState", &Operation::addGlobalState, Access::Public)
        .abstractMethod("createExecutionTasks", Access::Public)
        .declareMethod("isInputBroadcast", Access::Protected)
        .declareMethod("directEvaluateImpl", Access::Protected);
  }

 protected:
  Operation* createHostImplemented(const ki::KalvexManagedConstructInfo& info) override {
    return new KalvexImplementedOperation(info, OperationArguments{}, client_);
  }

 private:
  const kcos::COSClient* client_ = nullptr;
};

const ki::ClassKcosRegistration<OperationCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval
