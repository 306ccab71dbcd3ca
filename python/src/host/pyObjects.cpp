#include "pyObjects.h"

#include <array>

#include "interpreter.h"
#include "kv/host/stack.h"

namespace kv::python {

namespace {

struct Place {
  const char* module;
  const char* name;
};

/// In the order of `Known`.
constexpr std::array kPlaces = {
    Place{"kvbigdata._values", "Chars"},
    Place{"kvbigdata._values", "String"},
    Place{"kvbigdata._values", "StringArray"},
    Place{"kvbigdata._values", "Cell"},
    Place{"kvbigdata._values", "StructArray"},
    Place{"kvbigdata._values", "ObjectArray"},
    Place{"kvbigdata._records", "Property"},
    Place{"kvbigdata._records", "Warning"},
    Place{"kvbigdata._records", "Error"},
    Place{"kvbigdata._records", "Frame"},
    Place{"numpy", "ndarray"},
    Place{"numpy", "generic"},
    Place{"numpy.ma", "MaskedArray"},
    Place{"kvbigdata._values", "copy_to_columns"},
    Place{"kvbigdata._values", "owner_of"},
    Place{"kvbigdata._values", "array_of"},
    Place{"kvbigdata._values", "empty_array"},
    Place{"kvbigdata._values", "numpy_scalar"},
    Place{"kvbigdata._chunks", "call"},
    Place{"kvbigdata._chunks", "call_on_table"},
    Place{"kvbigdata._errors", "annotate"},
    Place{"kvbigdata._errors", "make_error"},
    Place{"kvbigdata._progress", "show"},
    Place{"kvbigdata._values", "microseconds_of"},
};

}  // namespace

SharedPyObject share(nb::handle object) {
  // Dropping the last reference may run a user's finalizer.
  return SharedPyObject(object.inc_ref().ptr(), [](PyObject* shared) {
    ifAlive([shared] { inUserCode([shared] { Py_DECREF(shared); }); });
  });
}

Nesting::Nesting() {
  if (host::isStackLow()) {
    PyErr_SetString(PyExc_RecursionError,
                    "a value is nested too deeply for the stack of this thread");
    throw nb::python_error();
  }
  if (Py_EnterRecursiveCall(" while a value is converted") != 0) {
    throw nb::python_error();
  }
}

nb::handle known(Known what) {
  // Never released: destructors at the end of the process would run after the interpreter's end.
  static std::array<PyObject*, kPlaces.size()> found{};
  const auto index = static_cast<std::size_t>(what);
  if (found[index] == nullptr) {
    const Place& place = kPlaces[index];
    nb::object object = nb::module_::import_(place.module).attr(place.name);
    found[index] = object.release().ptr();
  }
  return found[index];
}

}  // namespace kv::python
