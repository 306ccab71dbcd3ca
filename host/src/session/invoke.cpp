// How a chosen method runs. Order matters: a part of a half-made object is constructed before its
// member is used, trust is checked before the method runs, and the object is marked as having a
// running member for as long as it does, since `delete` inside the member must leave its native
// part alive until it returns.

#include "session/invoke.h"

#include <algorithm>
#include <cassert>

#include "kv/host/rawOutputs.h"
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

using NativeOutputs = OutputSlots<kcos::COSValue>;

void invokeNative(SessionState& session, const Method& method, const Call& call) {
  assert(method.counts.takes(call.nrhs));
  const NativeInputs inputs(call);
  NativeOutputs outputs(call.nlhs);
  int written = call.nlhs;
  const BodyScope inside;
  const RunningScope running(session, nullptr);
  method.native->invoke(method.owner->client(), written, outputs.data(), call.nrhs, inputs.data());
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    call.plhs[i] = outputs.take(i).release();
  }
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
  NativeOutputs outputs(0);
  outputs.data()[0].array = matrix::sharedCopy(self).release();
  int written = 0;
  const RunningScope running(session, nullptr);
  method.native->invoke(method.owner->client(), written, outputs.data(), call.nrhs, inputs.data());
}

}  // namespace kv::host
