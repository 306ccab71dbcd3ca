#include "calls.h"

#include "Object.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

/// No function has more outputs.
constexpr int kMaxOutputs = 65535;

}  // namespace

Inputs::Inputs(nb::handle tuple) {
  const auto count = static_cast<std::size_t>(PyTuple_GET_SIZE(tuple.ptr()));
  owned_.reserve(count);
  lent_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const nb::handle value = PyTuple_GET_ITEM(tuple.ptr(), static_cast<Py_ssize_t>(i));
    if (const kxArray* object = lentObject(value)) {
      lent_.push_back(object);
    } else {
      owned_.push_back(toHost(value));
      lent_.push_back(owned_.back().get());
    }
  }
}

nb::object toResult(int nargout, const std::vector<host::Value>& outputs) {
  if (nargout <= 1) {
    return outputs.empty() ? nb::none() : toPython(outputs.front().get());
  }
  nb::list values;
  for (const host::Value& output : outputs) {
    values.append(toPython(output.get()));
  }
  return nb::tuple(values);
}

void checkNargout(int nargout) {
  if (nargout < 0 || nargout > kMaxOutputs) {
    PyErr_Format(PyExc_ValueError, "nargout must be from 0 to %d, got %d", kMaxOutputs, nargout);
    throw nb::python_error();
  }
}

std::string rightsOf(nb::handle asClass) {
  return asClass.is_none() ? std::string() : toUtf8(asClass, "as_class");
}

}  // namespace kv::python
