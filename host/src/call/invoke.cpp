#include "call/invoke.h"

#include <algorithm>
#include <string>

#include "call/running.h"
#include "class/objects.h"
#include "kv/host/errors.h"

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
  const RunningScope running(session, nullptr);
  method.native->invoke(method.owner->client(), written, outputs.data(), call.nrhs, inputs.data());
  outputs.handOver(call);
}

/// Native code takes its object on trust: something else first, or an object of the class that
/// never got a native part, must not reach it.
void checkObjectFirst(const Method& method, const kxArray* first) {
  const bool isObject = kcos::omIsKCOS(first) && !kxIsEmpty(first);
  if (!isObject && method.counts.maxInputs < 0) {
    raise("KALVEX:class:InvalidHandle");
  }
  if (!isObject) {
    raiseInvalidType("Input", "scalar " + std::string(method.owner->getName()), first);
  }
  const Object* object = scalarObject(first);
  if (object != nullptr && !object->isDeleted() && object->instanceData() == nullptr &&
      object->objectClass().isA(method.owner->name())) {
    raise("KALVEX:class:InvalidHandle");
  }
}

}  // namespace

void runBody(SessionState& session, const NativeBody& body, const ClassRecord* rights,
             const Call& call) {
  const RunningScope running(session, rights);
  body(call);
}

void invokeMethod(SessionState& session, const Method& method, const Call& call, Object* target) {
  if (method.takesObjectFirst()) {
    Object* first = call.nrhs > 0 ? scalarObject(call.prhs[0]) : nullptr;
    target = first != nullptr ? first : target;
  }
  const OptionalMemberScope member(session.heap, target);
  if (method.body != nullptr) {
    runBody(session, *method.body, method.owner, call);
    return;
  }
  if (method.takesObjectFirst()) {
    checkObjectFirst(method, call.in(0));
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
