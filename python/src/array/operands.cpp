#include "array/operands.h"

#include <cstdint>

#include "array/arrayCalls.h"
#include "host/texts.h"

namespace kv::python {

namespace {

Operand integerOperand(nb::handle value) {
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow == 0) {
    return static_cast<std::int64_t>(number);
  }
  const unsigned long long large = PyLong_AsUnsignedLongLong(value.ptr());
  if (PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    const char* type = overflow < 0 ? "int64" : "uint64";
    const nb::object error =
        makeArrayError("KALVEX:function:OutOfRange", {"An operand", nb::str(value).c_str(), type});
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw nb::python_error();
  }
  return static_cast<std::uint64_t>(large);
}

}  // namespace

Operand toOperand(nb::handle value) {
  if (nb::isinstance<Array>(value)) {
    return *nb::inst_ptr<Array>(value);
  }
  if (PyBool_Check(value.ptr())) {
    return value.ptr() == Py_True;
  }
  if (PyLong_Check(value.ptr())) {
    return integerOperand(value);
  }
  if (PyFloat_Check(value.ptr())) {
    return PyFloat_AS_DOUBLE(value.ptr());
  }
  return toUtf8(value, "an operand");
}

std::vector<Operand> toOperands(const nb::list& values) {
  std::vector<Operand> operands;
  operands.reserve(nb::len(values));
  for (const nb::handle value : values) {
    operands.push_back(toOperand(value));
  }
  return operands;
}

std::vector<Array> toArrays(const nb::list& handles) {
  std::vector<Array> arrays;
  for (const nb::handle handle : handles) {
    arrays.push_back(nb::cast<const Array&>(handle));
  }
  return arrays;
}

}  // namespace kv::python
