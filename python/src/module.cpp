#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include <utility>

#include "array/arrayCalls.h"
#include "host/Function.h"
#include "host/Object.h"
#include "host/Session.h"
#include "host/bindSession.h"
#include "host/evaluation.h"
#include "host/values.h"
#include "kv/host/session.h"

namespace kv::python {

namespace {

nb::dict ledger() {
  const host::Ledger counts = host::ledger();
  nb::dict result;
  result["objects"] = counts.objects;
  result["arrays"] = counts.arrays;
  result["payloads"] = counts.payloads;
  result["payload_bytes"] = counts.payloadBytes;
  return result;
}

void closeAll() {
  SharedSession::closeAll();
  ArraySession::closeAll();
}

void bindModule(nb::module_& module) {
#ifdef NDEBUG
  nb::set_leak_warnings(false);  // other libraries may keep tables past the end of the interpreter
#endif
  watchEvaluations();
  bindSession(module);
  bindObject(module);
  bindFunction(module);
  bindNumbers(module);
  bindArrays(module);
  module.def("ledger", ledger, nb::sig("def ledger() -> dict[str, int]"),
             "What the process holds: counts of objects, arrays and payloads, and bytes. All are "
             "zero when every session is closed and every value is dropped.");
  module.def("close_all", closeAll,
             "For the end of the interpreter: stops other threads where they use the host, and "
             "closes the sessions that are still open.");
}

/// nanobind and this module have one state per process, which a second interpreter would overwrite.
bool refuseSubinterpreter() {
  if (PyInterpreterState_Get() == PyInterpreterState_Main()) {
    return false;
  }
  PyErr_SetString(PyExc_ImportError,
                  "kvbigdata.host works in the main interpreter only, not in a sub-interpreter; "
                  "run the code in another process");
  return true;
}

/// Types, texts and hooks belong to the process and can be set up only once.
bool refuseSecondImport() {
  static bool wasImported = false;
  if (!std::exchange(wasImported, true)) {
    return false;
  }
  PyErr_SetString(PyExc_ImportError,
                  "kvbigdata._host can't be imported a second time; restart Python instead of "
                  "reloading it");
  return true;
}

int initialize(PyObject* module) {
  if (refuseSubinterpreter() || refuseSecondImport() || !nb::register_module(module)) {
    return -1;
  }
  try {
    auto bound = nb::borrow<nb::module_>(module);
    bindModule(bound);
    return 0;
  } catch (nb::python_error& error) {
    error.restore();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_ImportError, error.what());
  }
  return -1;
}

}  // namespace
}  // namespace kv::python

PyMODINIT_FUNC PyInit__host() {
  static PyModuleDef_Slot slots[] = {{Py_mod_exec, reinterpret_cast<void*>(kv::python::initialize)},
                                     {0, nullptr}};
  static PyModuleDef definition = {
      PyModuleDef_HEAD_INIT, "_host", nullptr, 0, nullptr, slots, nullptr, nullptr, nullptr};
  return PyModuleDef_Init(&definition);
}
