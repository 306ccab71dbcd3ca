// A failure inside a user's function happens long after the user wrote the call, in code that the
// user never sees. So the handle keeps the stack of the user's line from the time it was made, and
// every error that leaves `feval` gets that stack attached before it is raised again.

#include "FunctionHandle.h"

#include <boost/container/small_vector.hpp>
#include <limits>
#include <utility>

#include "InternalStackFrame.h"
#include "kcos/calls.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/NameValueList.h"
#include "ki/checkCounts.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"

namespace bigdata {

namespace {

using ki::Access;
using matrix::ArrayPtr;
using matrix::sharedCopy;

constexpr double kNoLimit = std::numeric_limits<double>::infinity();

const ki::NameValueMap& permittedNames() {
  static const ki::NameValueMap names = {
      {"MaxNumSlices", nullptr}, {"ErrorStack", nullptr}, {"CaptureErrorStack", nullptr}};
  return names;
}

/// The client's stack as the host's own code gives it, taken inside an internal frame.
ArrayPtr clientStack() {
  const auto frame = ki::createManagedObject<InternalStackFrame>();
  return ki::callHost("kalvex.bigdata.BigDataException.getClientStack");
}

/// A stack that the caller gives takes precedence; the flag isn't read then.
ArrayPtr chooseErrorStack(const kxArray* errorStack, const kxArray* captureErrorStack) {
  if (errorStack != nullptr) {
    return sharedCopy(errorStack);
  }
  return ki::toLogical(captureErrorStack, true) ? clientStack() : nullptr;
}

/// Unlike the conversion to double, this one's error names only the class of the value.
double chooseMaxNumSlices(const kxArray* value) {
  if (value == nullptr) {
    return kNoLimit;
  }
  if (!ki::isNumberScalar(value)) {
    ki::detail::raiseInvalidInput("scalar double", kxGetClassName(value));
  }
  return kxGetScalar(value);
}

class FunctionHandleCosClassInfo final : public ki::KalvexManagedCosClassInfo<FunctionHandle> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    ki::CosClassBuilder<FunctionHandle>(cls)
        .constructor(Access::Private)
        .variadicConstructor(Access::Public)
        .property("Handle", &FunctionHandle::getHandle, &FunctionHandle::setHandle, Access::Public,
                  Access::Private)
        .property("ErrorStack", &FunctionHandle::getErrorStack, &FunctionHandle::setErrorStack,
                  Access::Public, Access::Private)
        .property("MaxNumSlices", &FunctionHandle::getMaxNumSlices,
                  &FunctionHandle::setMaxNumSlices, Access::Public, Access::Private)
        .variadicMethod("feval", &FunctionHandle::feval)
        .method("throwAsFunction", &FunctionHandle::throwAsFunction)
        .method("copy", &FunctionHandle::copy)
        .method("copyWithNewHandle", &FunctionHandle::copyWithNewHandle);
  }
};

const ki::ClassKcosRegistration<FunctionHandleCosClassInfo> registration;

}  // namespace

FunctionHandle::FunctionHandle(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info), maxNumSlices_(kNoLimit) {}

FunctionHandle::FunctionHandle(const ki::KalvexManagedConstructInfo& info, ArrayPtr handle)
    : FunctionHandle(info, std::move(handle), getUserStack(), kNoLimit) {}

FunctionHandle::FunctionHandle(const ki::KalvexManagedConstructInfo& info, ArrayPtr handle,
                               ArrayPtr errorStack, double maxNumSlices)
    : KalvexManagedObject(info),
      handle_(ki::adoptPropertyArray(selfInterface(), std::move(handle))),
      errorStack_(ki::adoptPropertyArray(selfInterface(), std::move(errorStack))),
      maxNumSlices_(maxNumSlices) {}

FunctionHandle::FunctionHandle(const ki::KalvexManagedConstructInfo& info, int nrhs,
                               const kxArray** prhs)
    : FunctionHandle(info) {
  ki::checkMinInputs(nrhs, 1);
  const ki::NameValueMap given = ki::parseNameValueList(permittedNames(), nrhs - 1, prhs + 1);
  setErrorStack(chooseErrorStack(given.at("ErrorStack"), given.at("CaptureErrorStack")));
  setMaxNumSlices(chooseMaxNumSlices(given.at("MaxNumSlices")));
  setHandle(sharedCopy(prhs[0]));
}

void FunctionHandle::setHandle(ArrayPtr value) {
  handle_ = ki::adoptPropertyArray(selfInterface(), std::move(value));
}

void FunctionHandle::setErrorStack(ArrayPtr value) {
  errorStack_ = ki::adoptPropertyArray(selfInterface(), std::move(value));
}

void FunctionHandle::feval(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) const {
  boost::container::small_vector<const kxArray*, 4> inputs{handle_.get()};
  inputs.insert(inputs.end(), prhs, prhs + nrhs);
  try {
    inCallFcn(nlhs, plhs, nrhs + 1, inputs.data(), "feval");
  } catch (const Torvane::KException::KExceptionEnvelope& failure) {
    throwAsFunction(matrix::from_kalvex(kcos::omCreateKCOSScalar(failure.getException())));
  }
}

void FunctionHandle::throwAsFunction(ArrayPtr error) const {
  if (!kxIsA(error.get(), "kalvex.bigdata.BigDataException")) {
    error = ki::callHost("kalvex.bigdata.BigDataException.build", {error.get()});
  }
  if (!kxIsEmpty(errorStack_.get())) {
    error = ki::callHost("attachSubmissionStack", {error.get(), errorStack_.get()});
  }
  ki::callHostForEffect("updateAndRethrow", {error.get()});
}

ki::KalvexManagedPtr<FunctionHandle> FunctionHandle::copy() const {
  ArrayPtr handle = sharedCopy(handle_.get());
  if (kxIsA(handle.get(), "kalvex.mixin.Copyable")) {
    handle = ki::callHost("copy", {handle.get()});
  }
  return copyWithNewHandle(std::move(handle));
}

ki::KalvexManagedPtr<FunctionHandle> FunctionHandle::copyWithNewHandle(ArrayPtr handle) const {
  return ki::createManagedObject<FunctionHandle>(std::move(handle), sharedCopy(errorStack_.get()),
                                                 maxNumSlices_);
}

}  // namespace bigdata
