#include "Function.h"

#include <nanobind/stl/string.h>

#include "calls.h"
#include "errors.h"
#include "values.h"

namespace kv::python {

Function::Function(const kxArray* handle)
    : name_(host::callableName(handle)), session_(Use::current()) {
  const bool isName = host::isTrusted(handle) && !host::functionName(handle).empty();
  if (!isName) {
    handle_ = std::shared_ptr<const kxArray>(matrix::sharedCopy(handle));
  }
}

host::Value Function::toHost() const {
  if (handle_ == nullptr) {
    return host::makeFunctionHandle(name_);
  }
  if (session_ != Use::current()) {
    raiseInPython("KALVEX:session:OtherSession");
  }
  return matrix::sharedCopy(handle_.get());
}

SessionPtr Function::sessionToRunIn() const {
  if (session_ != nullptr) {
    return session_;
  }
  if (Use::current() != nullptr) {
    return Use::current();
  }
  const std::vector<SessionPtr> open = SharedSession::openHere();
  if (open.size() != 1) {
    raiseInPython("KALVEX:session:Ambiguous", {name_, std::to_string(open.size())});
  }
  return open.front();
}

nb::object Function::call(int nargout, const nb::args& args) const {
  const Entry entry;
  checkNargout(nargout);
  const SessionPtr session = sessionToRunIn();
  const Use use(session);
  return fromHost([&] {
    const Inputs inputs(args);
    const host::Value handle = toHost();
    std::vector<const kxArray*> all{handle.get()};
    all.insert(all.end(), inputs.span().begin(), inputs.span().end());
    return toResult(nargout, session->host().call("feval", nargout, all));
  });
}

bool Function::operator==(const Function& other) const {
  const auto isCallable = [](const Function& function) {
    return host::callableBody(function.handle_.get()) != nullptr;
  };
  if (isCallable(*this) && isCallable(other)) {
    return kxIsSameValue(handle_.get(), other.handle_.get());
  }
  return isCallable(*this) == isCallable(other) && name_ == other.name_;
}

void bindFunction(nb::module_& module) {
  using namespace nb::literals;
  nb::class_<Function>(
      module, "Function",
      "A function of the host, by its name; called as fn(nargout, *args), as callables are.\n\n"
      "A Function that came from a session runs there. One made by name runs in the session whose "
      "call is running on the calling thread; if there is none, in the only session open on that "
      "thread. Otherwise Error \"KALVEX:session:Ambiguous\" is raised, with the name and the "
      "number of sessions.")
      .def(nb::init<std::string>(), "name"_a)
      .def_prop_ro("name", &Function::name, "The name of the function.")
      .def("__call__", &Function::call, "nargout"_a, "args"_a,
           nb::sig("def __call__(self, nargout: int, *args: typing.Any) -> typing.Any"),
           "Calls the function. Outputs are as for `Session.call`.")
      .def(
          "__eq__",
          [](const Function& self, nb::handle other) {
            return nb::isinstance<Function>(other) && self == *nb::inst_ptr<Function>(other);
          },
          "other"_a.none(), nb::sig("def __eq__(self, other: object, /) -> bool"))
      .def("__hash__",
           [](const Function& self) {
             return static_cast<Py_hash_t>(std::hash<std::string>()(self.name()) >> 1);
           })
      .def("__repr__", [](const Function& self) {
        return "kvbigdata.host.Function(" +
               nb::cast<std::string>(nb::repr(nb::str(self.name().data(), self.name().size()))) +
               ")";
      });
}

}  // namespace kv::python
