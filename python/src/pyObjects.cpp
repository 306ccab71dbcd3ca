#include "pyObjects.h"

#include <array>

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
    Place{"kvbigdata._values", "copyToColumns"},
    Place{"kvbigdata._values", "emptyArray"},
    Place{"kvbigdata._values", "numpyScalar"},
};

}  // namespace

SharedPyObject share(nb::handle object) {
  return SharedPyObject(object.inc_ref().ptr(), [](PyObject* shared) {
    if (const nb::detail::cleanup_guard guard{}) {
      Py_DECREF(shared);
    }
  });
}

nb::handle known(Known what) {
  // Kept for good: what is dropped at the end of the process would outlive the interpreter.
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
