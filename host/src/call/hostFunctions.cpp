#include "call/hostFunctions.h"

#include "call/dispatch.h"
#include "call/invoke.h"
#include "heap/FunctionValue.h"
#include "session/SessionState.h"

namespace kv::host {

void fevalBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  if (nrhs < 1) {
    matrix::detail::error_minrhs();
  }
  SessionState& session = requireSession();
  const Call call{nlhs, plhs, nrhs - 1, prhs + 1};
  const FunctionValue* handle = functionValue(prhs[0]);
  if (handle == nullptr) {
    const std::string name = toText(prhs[0]);
    callByName(session, kcos::internal::makeInterned(kcos::NameRef::of(name)), call);
  } else if (handle->body != nullptr) {
    const Value alive = matrix::sharedCopy(prhs[0]);
    runBody(session, handle->body, nullptr, call);
  } else {
    callByName(session, handle->name, call);
  }
}

void str2funcBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  const Call call{nlhs, plhs, nrhs, prhs};
  call.expect(1, 1, 1);
  call.out(0, makeFunctionHandle(toText(call.in(0))));
}

}  // namespace kv::host
