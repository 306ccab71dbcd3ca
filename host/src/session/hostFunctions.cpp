#include "session/hostFunctions.h"

#include "heap/FunctionValue.h"
#include "kv/host/errors.h"
#include "session/SessionState.h"
#include "session/dispatch.h"
#include "session/invoke.h"

namespace kv::host {

namespace {

/// A callable isn't saved, only its name. Only a function that the program has registered replaces
/// it: a library's function that happens to have the name is another function.
void requireRegistered(const SessionState& session, const FunctionValue& handle) {
  const Binding* binding = session.calls.find(handle.name);
  if (binding == nullptr || binding->function == nullptr || binding->isLibrary) {
    const std::string name(handle.name.text());
    raiseWithMessage("KALVEX:UndefinedFunction",
                     "The function '" + name +
                         "' was saved by its name alone: define a function of that name in the "
                         "session to call it.",
                     {name});
  }
}

}  // namespace

bool isLibraryFunction(std::string_view name) {
  const Binding* binding =
      requireSession().calls.find(kcos::internal::makeInterned(kcos::NameRef::of(name)));
  return binding != nullptr &&
         ((binding->function != nullptr && binding->isLibrary) || binding->rawBuiltin != nullptr ||
          binding->owningBuiltin != nullptr);
}

void fevalBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  if (nrhs < 1) {
    matrix::detail::error_minrhs();
  }
  SessionState& session = requireSession();
  const Call call{nlhs, plhs, nrhs - 1, prhs + 1};
  const FunctionValue* handle = functionValue(prhs[0]);
  if (handle != nullptr) {
    requireTrusted(prhs[0], handle->name.text());
  }
  if (handle == nullptr) {
    const std::string name = toText(prhs[0]);
    callByName(session, kcos::internal::makeInterned(kcos::NameRef::of(name)), call);
  } else if (handle->body != nullptr) {
    const Value alive = matrix::sharedCopy(prhs[0]);
    runBody(session, handle->body, nullptr, call);
  } else {
    if (handle->isPlaceholder) {
      requireRegistered(session, *handle);
    }
    callByName(session, handle->name, call);
  }
}

void str2funcBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  const Call call{nlhs, plhs, nrhs, prhs};
  call.expect(1, 1, 1);
  call.out(0, makeFunctionHandle(toText(call.in(0))));
}

}  // namespace kv::host
