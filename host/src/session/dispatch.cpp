// How a call by name finds its callee. Objects come first, then the one binding of the name, which
// holds all its other meanings in order of precedence. A name "Class.method" is split at its first
// call and the result kept in its binding, so that it costs one look-up afterwards. Nothing found
// here is kept across user code, which may redefine everything.

#include "session/dispatch.h"

#include <algorithm>
#include <cassert>
#include <string>
#include <vector>

#include "kv/host/errors.h"
#include "kv/host/rawOutputs.h"
#include "kv/host/session.h"
#include "session/construction.h"
#include "session/edge.h"
#include "session/invoke.h"
#include "session/objects.h"
#include "session/overloads.h"
#include "session/running.h"

namespace kv::host {

namespace {

bool callOnObject(SessionState& session, kcos::COSInternedBase name, const Call& call) {
  const int asked = name == session.calls.fevalName() ? std::min(call.nrhs, 1) : call.nrhs;
  for (int i = 0; i < asked; ++i) {
    const ClassRecord* record = classOf(session, call.prhs[i]);
    const MethodSet* set = record != nullptr ? record->linked().methods.find(name) : nullptr;
    if (set == nullptr) {
      continue;
    }
    if (const Method* method =
            chooseOverload(*set, MethodKind::Instance, call.nlhs, call.nrhs, session.caller)) {
      invokeMethod(session, *method, call, scalarObject(call.prhs[i]));
      return true;
    }
  }
  return false;
}

bool callStatic(SessionState& session, const ClassRecord& record, kcos::COSInternedBase name,
                const Call& call) {
  const MethodSet* set = record.linked().methods.find(name);
  const Method* method = set != nullptr ? chooseOverload(*set, MethodKind::Static, call.nlhs,
                                                         call.nrhs, session.caller)
                                        : nullptr;
  if (method != nullptr) {
    invokeMethod(session, *method, call, nullptr);
  }
  return method != nullptr;
}

/// Splits "Class.name" where the part before the last "." is a class, and notes it in the binding.
void findStaticOwner(SessionState& session, kcos::COSInternedBase name) {
  const std::string_view text = name.text();
  const std::size_t split = text.rfind('.');
  if (split == std::string_view::npos) {
    return;
  }
  const auto part = [](std::string_view of) {
    return kcos::internal::makeInterned(kcos::NameRef::of(of));
  };
  if (ClassRecord* owner = session.classes.find(part(text.substr(0, split)))) {
    Binding& binding = session.calls.binding(name);
    binding.staticOwner = owner;
    binding.staticName = part(text.substr(split + 1));
  }
}

void callRawBuiltin(RawBuiltin builtin, const Call& call) {
  boost::container::small_vector<const kxArray*, 6> inputs(call.prhs, call.prhs + call.nrhs);
  builtin(call.nlhs, call.plhs, call.nrhs, inputs.data());
}

void callOwningBuiltin(OwningBuiltin builtin, const Call& call) {
  boost::container::small_vector<const kxArray*, 6> inputs(call.prhs, call.prhs + call.nrhs);
  boost::container::small_vector<Value, 4> outputs(
      static_cast<std::size_t>(std::max(call.nlhs, 1)));
  builtin(call.nlhs, outputs.data(), call.nrhs, inputs.data());
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    call.plhs[i] = outputs[i].release();
  }
}

bool callBuiltin(SessionState& session, const Binding& binding, const Call& call) {
  const RunningScope running(session, nullptr);
  if (binding.owningBuiltin != nullptr) {
    callOwningBuiltin(binding.owningBuiltin, call);
  } else if (binding.rawBuiltin != nullptr) {
    callRawBuiltin(binding.rawBuiltin, call);
  } else {
    return false;
  }
  return true;
}

/// Result: false if the binding has nothing that can be called.
bool callBinding(SessionState& session, const Binding& binding, const Call& call) {
  if (binding.function != nullptr) {
    runBody(session, *binding.function, nullptr, call);
  } else if (binding.classRecord != nullptr) {
    constructObject(session, *binding.classRecord, call);
  } else {
    return (binding.staticOwner != nullptr &&
            callStatic(session, *binding.staticOwner, binding.staticName, call)) ||
           callBuiltin(session, binding, call);
  }
  return true;
}

bool isUnbound(const Binding* binding) {
  return binding == nullptr || (binding->function == nullptr && binding->classRecord == nullptr &&
                                binding->staticOwner == nullptr);
}

/// Frees what a failing call had written; the caller finds null outputs.
class OutputsGuard {
 public:
  explicit OutputsGuard(const Call& call) : call_(call) {}
  ~OutputsGuard() {
    for (int i = 0; armed_ && i < std::max(call_.nlhs, 1); ++i) {
      matrix::from_kalvex(std::exchange(call_.plhs[i], nullptr));
    }
  }
  OutputsGuard(const OutputsGuard&) = delete;
  OutputsGuard& operator=(const OutputsGuard&) = delete;
  void dismiss() { armed_ = false; }

 private:
  const Call& call_;
  bool armed_ = true;
};

/// Runs `body` as a bound call; all of its outputs or none are written.
template <class Body>
bool boundCall(const Call& call, Body&& body) {
  return atEdge([&] {
    OutputsGuard guard(call);
    const bool called = body();
    guard.dismiss();
    return called;
  });
}

}  // namespace

void callByName(SessionState& session, kcos::COSInternedBase name, const Call& call) {
  if (callOnObject(session, name, call)) {
    return;
  }
  const Binding* binding = session.calls.find(name);
  if (isUnbound(binding)) {
    findStaticOwner(session, name);
    binding = session.calls.find(name);
  }
  if (binding == nullptr || !callBinding(session, *binding, call)) {
    raise("KALVEX:UndefinedFunction", {std::string(name.text())});
  }
}

bool callMethod(SessionState& session, const ClassRecord& record, kcos::COSInternedBase name,
                const Call& call) {
  const MethodSet* set = record.linked().methods.find(name);
  const Method* method =
      set != nullptr ? chooseOverload(*set, MethodKind::Any, call.nlhs, call.nrhs, session.caller)
                     : nullptr;
  if (method != nullptr) {
    invokeMethod(session, *method, call, call.nrhs > 0 ? scalarObject(call.prhs[0]) : nullptr);
  }
  return method != nullptr;
}

Value call(kcos::NameRef name, std::span<const kxArray* const> inputs) {
  RawOutputs outputs(1);
  inCallFcn(1, outputs.data(), static_cast<int>(inputs.size()), inputs.data(), name);
  return outputs.take(0);
}

std::vector<Value> callMany(kcos::NameRef name, int nlhs, std::span<const kxArray* const> inputs) {
  RawOutputs outputs(nlhs);
  inCallFcn(nlhs, outputs.data(), static_cast<int>(inputs.size()), inputs.data(), name);
  return outputs.takeAll();
}

void Call::expect(int maxOutputs, int minInputs, int maxInputs) const {
  if (nlhs > maxOutputs && nlhs > 1) {
    matrix::detail::error_maxlhs();
  }
  if (maxInputs >= 0 && nrhs > maxInputs) {
    matrix::detail::error_maxrhs();
  }
  if (nrhs < minInputs) {
    matrix::detail::error_minrhs();
  }
}

void callAtEdge(SessionState& session, kcos::COSInternedBase name, const Call& call) {
  boundCall(call, [&] {
    callByName(session, name, call);
    return true;
  });
}

bool callMethodAtEdge(SessionState& session, kcos::COSInternedBase className,
                      kcos::COSInternedBase name, const ClassRecord* rights, const Call& call) {
  return boundCall(call, [&] {
    const RunningScope running(session, rights);
    return callMethod(session, session.classes.require(className), name, call);
  });
}

}  // namespace kv::host

void inCallFcn(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs,
               kcos::COSInternedBase name) {
  assert(std::all_of(plhs, plhs + std::max(nlhs, 1),
                     [](const kxArray* output) { return output == nullptr; }));
  kv::host::callAtEdge(kv::host::requireSession(), name, {nlhs, plhs, nrhs, prhs});
}

void inCallFcn(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs, kcos::NameRef name) {
  inCallFcn(nlhs, plhs, nrhs, prhs, kcos::internal::makeInterned(name));
}

bool kcos::omCallMethod(COSInternedBase className, COSInternedBase methodName,
                        const COSClient* client, int nlhs, kxArray** plhs, int nrhs,
                        const kxArray* const* prhs, bool /*last*/) {
  return kv::host::callMethodAtEdge(kv::host::requireSession(), className, methodName,
                                    client != nullptr ? &client->record() : nullptr,
                                    {nlhs, plhs, nrhs, prhs});
}
