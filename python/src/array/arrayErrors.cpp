// An error of array/ becomes an exception of the class that `kvbigdata._errors` chooses. An
// exception that a user's function raised comes back as itself.

#include <exception>
#include <new>
#include <string>
#include <vector>

#include "array/arrayCalls.h"
#include "array/chunkFunction.h"
#include "host/errors.h"
#include "host/pyObjects.h"
#include "host/stacks.h"
#include "host/texts.h"
#include "kv/error.h"
#include "kv/runtime/runtime.h"

namespace kv::python {

namespace {

constexpr const char* kBases[] = {"runtime", "value", "type", "key", "index", "memory", "system"};

template <class Frames>
nb::list toList(const Frames& frames) {
  nb::list list;
  for (const auto& frame : frames) {
    list.append(nb::make_tuple(toPython(frame.file), toPython(frame.name), frame.line));
  }
  return list;
}

nb::list stackOf(const Error& error, Line line) {
  return line == Line::Recorded && !error.stack().empty() ? toList(error.stack())
                                                          : toList(pythonStack());
}

nb::object numberOrNone(const std::optional<std::int64_t>& number) {
  return number ? nb::object(nb::int_(*number)) : nb::none();
}

nb::tuple placeOf(const Error& error) {
  const ErrorPlace& place = error.place();
  return nb::make_tuple(numberOrNone(place.partition), numberOrNone(place.firstRow),
                        numberOrNone(place.lastRow), toPython(place.file));
}

nb::object toException(const Error& error, Line line) {
  nb::list arguments;
  for (const std::string& argument : error.arguments()) {
    arguments.append(toPython(argument));
  }
  nb::object cause = error.cause() != nullptr ? toException(*error.cause(), line) : nb::none();
  return known(Known::MakeArrayError)(
      toPython(error.identifier()), toPython(std::string_view(error.what())), arguments,
      kBases[static_cast<std::size_t>(errorBase(error.identifier()))], stackOf(error, line),
      placeOf(error), cause);
}

/// The exception that a user's function raised, with notes; otherwise one for the error.
nb::object exceptionFor(const Error& error, Line line) {
  nb::object original = originalOf(error);
  if (!original.is_valid()) {
    return toException(error, line);
  }
  known(Known::AnnotateError)(original, stackOf(error, line), placeOf(error));
  return original;
}

[[noreturn]] void raise(nb::handle exception) {
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
  throw nb::python_error();
}

}  // namespace

nb::list liveFrames() { return toList(pythonStack()); }

nb::object makeArrayError(const std::string& identifier, std::vector<std::string> arguments) {
  try {
    raiseError(identifier, std::move(arguments));
  } catch (const Error& error) {
    return toException(error, Line::Live);
  }
}

void throwArrayError(Line line) {
  try {
    throw;
  } catch (const Error& error) {
    raise(exceptionFor(error, line));
  } catch (const PythonPassThrough& passing) {
    raise(passing.exception());
  } catch (const Interrupted&) {
    PyErr_SetNone(PyExc_KeyboardInterrupt);
    throw nb::python_error();
  } catch (const std::bad_alloc&) {
    raise(toException(Error("KALVEX:OutOfMemory", "There is not enough memory."), line));
  }
}

}  // namespace kv::python
