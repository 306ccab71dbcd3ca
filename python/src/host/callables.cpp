#include "callables.h"

#include <vector>

#include "errors.h"
#include "interpreter.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

/// Arguments of a vector call.
class Arguments {
 public:
  Arguments(const host::Call& call, Convention convention) {
    objects_.reserve(static_cast<std::size_t>(call.nrhs) + 1);
    if (convention == Convention::Function) {
      objects_.push_back(nb::int_(call.nlhs));
    }
    for (int i = 0; i < call.nrhs; ++i) {
      objects_.push_back(toPython(call.prhs[i]));
    }
    for (const nb::object& object : objects_) {
      lent_.push_back(object.ptr());
    }
  }

  nb::object call(nb::handle function) const {
    PyObject* result = inUserCode(
        [&] { return PyObject_Vectorcall(function.ptr(), lent_.data(), lent_.size(), nullptr); });
    if (result == nullptr) {
      throw nb::python_error();
    }
    return nb::steal(result);
  }

 private:
  std::vector<nb::object> objects_;
  std::vector<PyObject*> lent_;
};

void giveOutputs(const host::Call& call, nb::handle result) {
  if (result.is_none()) {
    return;
  }
  if (!PyTuple_Check(result.ptr())) {
    call.out(0, toHost(result));
    return;
  }
  const int room = call.nlhs > 1 ? call.nlhs : 1;
  for (int i = 0; i < room && i < PyTuple_GET_SIZE(result.ptr()); ++i) {
    call.out(i, toHost(PyTuple_GET_ITEM(result.ptr(), i)));
  }
}

/// The name of a callable in stacks and messages of the host.
std::string nameOf(nb::handle function) {
  const nb::object name = nb::getattr(function, "__qualname__", nb::none());
  return PyUnicode_Check(name.ptr()) ? toUtf8(name, "__qualname__")
                                     : std::string(Py_TYPE(function.ptr())->tp_name);
}

}  // namespace

void Callable::operator()(const host::Call& call) const {
  const ModuleScope scope;
  const Lock lock;
  try {
    run(call);
  } catch (nb::python_error& error) {
    throwIntoHost(error.value());
  } catch (nb::builtin_exception& error) {
    error.type() == nb::exception_type::type_error
        ? PyErr_SetString(PyExc_TypeError, error.what())
        : PyErr_SetString(PyExc_ValueError, error.what());
    const nb::python_error raised;
    throwIntoHost(raised.value());
  }
}

void Callable::run(const host::Call& call) const {
  const nb::object function = nb::borrow(function_.get());  // the call may redefine its own name
  const nb::object result = Arguments(call, convention_).call(function);
  if (convention_ == Convention::Function) {
    giveOutputs(call, result);
  }
}

host::NativeBody bodyOf(nb::handle function, const char* role, Convention convention) {
  if (PyCallable_Check(function.ptr()) == 0) {
    PyErr_Format(PyExc_TypeError, "%s must be callable, not %s", role,
                 Py_TYPE(function.ptr())->tp_name);
    throw nb::python_error();
  }
  return Callable(function, convention);
}

host::Value callableToHost(nb::handle function) {
  return host::makeFunctionHandle(nameOf(function), Callable(function));
}

nb::object callableToPython(const kxArray* handle) {
  const host::NativeBody* body = host::callableBody(handle);
  const Callable* callable = body != nullptr ? body->target<Callable>() : nullptr;
  return callable != nullptr ? nb::borrow(callable->function()) : nb::object();
}

}  // namespace kv::python
