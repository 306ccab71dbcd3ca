#pragma once

#include <nanobind/nanobind.h>

#include <memory>

namespace kv::python {

namespace nb = nanobind;

/// A reference to a Python object that C++ may copy and drop on any thread, with or without the
/// interpreter's lock.
using SharedPyObject = std::shared_ptr<PyObject>;

/// Requires: the interpreter's lock.
SharedPyObject share(nb::handle object);

/// Classes and functions of Python that conversions need, looked up once and kept.
enum class Known {
  Chars,
  String,
  StringArray,
  Cell,
  StructArray,
  ObjectArray,
  Property,
  Warning,
  Error,
  Frame,
  NumpyArray,
  NumpyGeneric,
  MaskedArray,
  CopyToColumns,  ///< an array -> a copy of it, column-major, in native byte order
  OwnerOf,        ///< an array -> what owns its memory; None if someone may write it
  ArrayOf,        ///< (dimensions, name of its type, memory) -> an array, column-major
  EmptyArray,     ///< (dimensions, name of its type) -> an array without elements, read-only
  NumpyScalar,    ///< (name of its type, bytes) -> a scalar
};

/// Errors: those of the import. Requires: the interpreter's lock.
nb::handle known(Known what);

/// True if the type of `object` is a known class or derived from it. (Unlike `isinstance` it asks
/// neither the object nor an abstract class: those answer in Python.)
inline bool isA(nb::handle object, Known what) {
  return PyObject_TypeCheck(object.ptr(), reinterpret_cast<PyTypeObject*>(known(what).ptr())) != 0;
}

/// What an instance of a class of this module holds; null for anything else, and for one that was
/// made but never initialised.
template <class T>
const T* instanceOf(nb::handle object) {
  return nb::isinstance<T>(object) && nb::inst_ready(object) ? nb::inst_ptr<T>(object) : nullptr;
}

/// Refuses a nesting that is deeper than the interpreter or the thread's stack allows.
/// Errors: RecursionError.
class Nesting {
 public:
  Nesting();
  ~Nesting() { Py_LeaveRecursiveCall(); }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
};

}  // namespace kv::python
