#include "session/invoke.h"

#include <algorithm>

#include "session/BodyScope.h"
#include "session/construction.h"
#include "session/objects.h"
#include "session/running.h"
#include "session/trust.h"
#include "session/wrappers.h"

namespace kv::host {

namespace {

/// Inputs as native methods take them.
class NativeInputs {
 public:
  explicit NativeInputs(const Call& call) {
    values_.reserve(static_cast<std::size_t>(call.nrhs));
    for (int i = 0; i < call.nrhs; ++i) {
      values_.push_back({const_cast<kxArray*>(call.prhs[i])});
    }
  }
  const kcos::COSValue* data() const { return values_.data(); }

 private:
  boost::container::small_vector<kcos::COSValue, 6> values_;
};

/// Room for what a native method writes; frees what isn't handed over.
class NativeOutputs {
 public:
  explicit NativeOutputs(const Call& call)
      : values_(static_cast<std::size_t>(std::max(call.nlhs, 1))) {}
  ~NativeOutputs() {
    for (const kcos::COSValue& value : values_) {
      matrix::from_kalvex(value.array);
    }
  }
  NativeOutputs(const NativeOutputs&) = delete;
  NativeOutputs& operator=(const NativeOutputs&) = delete;

  kcos::COSValue* data() { return values_.data(); }
  void handOver(const Call& call) {
    for (std::size_t i = 0; i < values_.size(); ++i) {
      call.plhs[i] = std::exchange(values_[i].array, nullptr);
    }
  }

 private:
  boost::container::small_vector<kcos::COSValue, 4> values_;
};

void invokeNative(SessionState& session, const Method& method, const Call& call) {
  const NativeInputs inputs(call);
  NativeOutputs outputs(call);
  int written = call.nlhs;
  const BodyScope inside;
  const RunningScope running(session, nullptr);
  method.native->invoke(method.owner->client(), written, outputs.data(), call.nrhs, inputs.data());
  outputs.handOver(call);
}

}  // namespace

void runBody(SessionState& session, const NativeBody& body, const ClassRecord* rights,
             const Call& call) {
  const BodyScope inside;
  const RunningScope running(session, rights);
  body(call);
}

void invokeMethod(SessionState& session, const Method& method, const Call& call, Object* target) {
  if (method.takesObjectFirst()) {
    Object* first = call.nrhs > 0 ? scalarObject(call.prhs[0]) : nullptr;
    target = first != nullptr ? first : target;
  }
  if (target != nullptr && target->isUnderConstruction() &&
      classOf(*target).isA(method.owner->name())) {
    constructPart(session, *target, *method.owner);
  }
  if (target != nullptr && target->isUntrusted()) {
    refuseGuarded(session, method, *target);
  }
  const OptionalMemberScope member(session.heap, target);
  if (method.body != nullptr) {
    runBody(session, *method.body, method.owner, call);
    return;
  }
  if (const std::shared_ptr<const MethodWrapper> wrapper = wrapperOf(session, method)) {
    const RunningScope running(session, nullptr);
    (*wrapper)(call, [&] { invokeNative(session, method, call); });
    return;
  }
  invokeNative(session, method, call);
}

void invokeConstructor(SessionState& session, const Method& method, const kxArray* self,
                       const Call& call) {
  const NativeInputs inputs(call);
  const Call none{0, nullptr, 0, nullptr};
  NativeOutputs outputs(none);
  outputs.data()[0].array = matrix::sharedCopy(self).release();
  int written = 0;
  const RunningScope running(session, nullptr);
  method.native->invoke(method.owner->client(), written, outputs.data(), call.nrhs, inputs.data());
}

}  // namespace kv::host
