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

/// Python classes and functions that conversions need, looked up once and cached.
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
  CopyToColumns,      ///< an array -> a copy of it, column-major, in native byte order
  OwnerOf,            ///< an array -> the owner of its memory; None if it may be written
  ArrayOf,            ///< (dimensions, name of its type, memory) -> an array, column-major
  EmptyArray,         ///< (dimensions, name of its type) -> an array without elements, read-only
  NumpyScalar,        ///< (name of its type, bytes) -> a scalar
  CallChunkFunction,  ///< (function, inputs, type) -> the parts of its result
  CallTableFunction,  ///< (function, columns, their names and those returned) -> parts of columns
  AnnotateError,      ///< (exception, frames, place): adds notes on where it was recorded
  MakeArrayError,     ///< the parts of an error of array/ -> its exception
  ShowProgress,       ///< (watch, stage, its units so far, all of them, seconds)
  Microseconds,       ///< an array of datetime64 or timedelta64 -> its elements in microseconds
};

/// Requires: the interpreter's lock. Errors: those of the import.
nb::handle known(Known what);

/// True if the type of `object` is a known class or derived from it. (Unlike `isinstance`, this
/// runs no Python code of the object or of an abstract class.)
inline bool isA(nb::handle object, Known what) {
  return PyObject_TypeCheck(object.ptr(), reinterpret_cast<PyTypeObject*>(known(what).ptr())) != 0;
}

/// The C++ part of an instance of a class of this module; null for anything else, and for an
/// instance that was created but never initialised.
template <class T>
const T* instanceOf(nb::handle object) {
  return nb::isinstance<T>(object) && nb::inst_ready(object) ? nb::inst_ptr<T>(object) : nullptr;
}

/// Refuses nesting deeper than the interpreter or the thread's stack allows.
/// Errors: RecursionError.
class Nesting {
 public:
  Nesting();
  ~Nesting() { Py_LeaveRecursiveCall(); }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
};

}  // namespace kv::python
