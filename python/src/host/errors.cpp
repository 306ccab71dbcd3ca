// Errors cross between Python and the host in both directions, often several times, and must arrive
// with the same identifier, arguments, message and cause. The host stores a KException; the Python
// exception from which one was made is stored next to it as a native value, so that Python gets
// back the same object. An Error that is caught and raised again is sent as its original host
// object, but only if no one has changed it in between.

#include "errors.h"

#include <algorithm>
#include <new>

#include "Object.h"
#include "Session.h"
#include "foundation/exception.h"
#include "foundation/i18n.h"
#include "kv/host/values.h"
#include "kv/runtime/runtime.h"
#include "stacks.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

using foundation::core::except::IMsgIDException;
using host::Value;
using Torvane::KException::KExceptionEnvelope;

/// Longer chains of causes are cut off.
constexpr int kMaxCauses = 64;

/// Stores, with a KException, the Python exception from which it was made.
class Original : public host::NativeValue {
 public:
  explicit Original(nb::handle exception) : exception_(share(exception)) {}
  nb::handle exception() const { return exception_.get(); }

 private:
  SharedPyObject exception_;
};

std::string textOf(nb::handle object) {
  try {
    return toUtf8(nb::str(object), "text");
  } catch (nb::python_error& error) {
    error.discard_as_unraisable("an exception that can't be converted to text");
    return {};
  }
}

Value makeStack(const std::vector<host::Frame>& frames) {
  static constexpr std::string_view kFields[] = {"file", "name", "line"};
  Value array = matrix::from_kalvex(kxCreateStructMatrix(frames.size(), 1, kFields));
  for (std::size_t i = 0; i < frames.size(); ++i) {
    kxSetField(array.get(), i, "file", host::makeChars(frames[i].file).release());
    kxSetField(array.get(), i, "name", host::makeChars(frames[i].name).release());
    kxSetField(array.get(), i, "line", host::makeDouble(frames[i].line).release());
  }
  return array;
}

Value stackOf(nb::handle exception) {
  std::vector<host::Frame> frames = tracebackFrames(exception);
  for (host::Frame& outer : pythonStack()) {
    frames.push_back(std::move(outer));
  }
  return makeStack(frames);
}

Value makeException(const std::string& identifier, const std::string& message,
                    std::vector<Value> arguments) {
  const Value id = host::makeChars(identifier);
  const Value text = host::makeChars(message);
  const Value cell = host::makeCell(std::move(arguments));
  return host::call("KException", {id.get(), text.get(), cell.get()});
}

Value exceptionOfError(nb::handle error, int depth);

/// A KException that stores the Python exception from which it was made.
Value keeping(nb::handle exception, const std::string& identifier) {
  Value made = makeException(identifier, textOf(exception), {});
  host::setNativeValue(made.get(), std::make_unique<Original>(exception));
  return made;
}

std::string identifierOf(nb::handle exception) {
  return "KALVEX:python:" + textOf(exception.type().attr("__name__"));
}

/// When the host builds one exception from another, only slots are kept. So the Python exception is
/// stored in the cause.
void attachCause(const Value& exception, nb::handle cause, int depth) {
  if (!PyExceptionInstance_Check(cause.ptr()) || depth >= kMaxCauses) {
    return;
  }
  host::setSlot(exception.get(), "cause",
                isA(cause, Known::Error) ? exceptionOfError(cause, depth + 1)
                                         : keeping(cause, identifierOf(cause)));
}

/// The content of an Error.
struct Wording {
  std::string identifier;
  std::string message;
  std::vector<std::string> arguments;
};

Wording wordingOf(nb::handle error) {
  Wording wording{textOf(error.attr("identifier")), textOf(error.attr("message")), {}};
  for (const nb::handle argument : error.attr("arguments")) {
    wording.arguments.push_back(textOf(argument));
  }
  return wording;
}

/// True if the exception has this content. An empty message and missing arguments match anything.
bool says(const kxArray* exception, const Wording& wording) {
  const host::ErrorRecord record =
      host::errorRecord(KExceptionEnvelope(kcos::omGetArrayElement(exception, 0)));
  return record.identifier == wording.identifier &&
         (wording.message.empty() || record.message == wording.message) &&
         (wording.arguments.empty() || record.arguments == wording.arguments);
}

/// The object with which an Error came, if it is one of the current session. Code that raises the
/// Error again may have changed the Error, so the two can differ.
Value objectOf(nb::handle error) {
  const nb::object object = error.attr("object");
  const Object* wrapped = instanceOf<Object>(object);
  const bool isOurs = wrapped != nullptr && wrapped->session() == Use::current() &&
                      !wrapped->isDeleted() && kxIsA(wrapped->array(), "KException");
  return isOurs ? matrix::sharedCopy(wrapped->array()) : nullptr;
}

Value exceptionOfError(nb::handle error, int depth) {
  const Wording wording = wordingOf(error);
  if (Value object = objectOf(error); object != nullptr && says(object.get(), wording)) {
    return object;
  }
  std::vector<Value> arguments(wording.arguments.size());
  std::ranges::transform(wording.arguments, arguments.begin(), host::makeChars);
  Value exception = makeException(wording.identifier, wording.message, std::move(arguments));
  host::setSlot(exception.get(), "stack", stackOf(error));
  const nb::object cause = error.attr("cause");
  attachCause(exception, cause.is_none() ? error.attr("__cause__") : cause, depth);
  return exception;
}

Value exceptionOf(nb::handle exception) {
  if (isA(exception, Known::Error)) {
    return exceptionOfError(exception, 0);
  }
  Value made = makeException(identifierOf(exception), textOf(exception), {});
  host::setSlot(made.get(), "stack", stackOf(exception));
  attachCause(made, exception, 0);
  return made;
}

nb::list toList(const std::vector<std::string>& texts) {
  nb::list list;
  for (const std::string& text : texts) {
    list.append(toPython(text));
  }
  return list;
}

nb::object makeError(const kxArray* exception, int depth);

/// The Error for an exception's cause, the Python exception that the cause stores, or None.
nb::object causeOf(const kxArray* exception, int depth) {
  const Value cause = host::getSlot(exception, "cause");
  const bool isError = depth < kMaxCauses && kcos::omIsKCOS(cause.get()) &&
                       kxIsScalar(cause.get()) && kxIsA(cause.get(), "KException") &&
                       !kcos::omGetArrayElement(cause.get(), 0)->isDeleted();
  if (!isError) {
    return nb::none();
  }
  const auto* original = dynamic_cast<Original*>(host::getNativeValue(cause.get()));
  return original != nullptr ? nb::borrow(original->exception())
                             : makeError(cause.get(), depth + 1);
}

nb::object makeError(const kxArray* exception, int depth) {
  const KExceptionEnvelope envelope(kcos::omGetArrayElement(exception, 0));
  const host::ErrorRecord record = host::errorRecord(envelope);
  const bool isAlive = !envelope.getException()->isDeleted();
  nb::object error = known(Known::Error)(toPython(record.identifier), toPython(record.message),
                                         toList(record.arguments),
                                         isAlive ? causeOf(exception, depth) : nb::none());
  nb::list stack;
  for (const host::Frame& frame : record.stack) {
    stack.append(known(Known::Frame)(toPython(frame.file), toPython(frame.name), frame.line));
  }
  error.attr("stack") = stack;
  error.attr("object") = Object::wrap(matrix::sharedCopy(exception));
  return error;
}

[[noreturn]] void raiseObject(nb::handle exception) {
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
  throw nb::python_error();
}

[[noreturn]] void raiseError(const std::string& identifier, const std::string& message,
                             const std::vector<std::string>& arguments) {
  raiseObject(known(Known::Error)(toPython(identifier), toPython(message), toList(arguments)));
}

std::vector<std::string> argumentsOf(const IMsgIDException& error) {
  std::vector<std::string> arguments;
  for (const std::u16string& argument : error.get_arguments()) {
    arguments.push_back(fl::i18n::to_string(argument));
  }
  return arguments;
}

}  // namespace

void raiseInPython(std::string_view identifier, const std::vector<std::string>& arguments) {
  raiseError(std::string(identifier), host::catalogueText(identifier, arguments), arguments);
}

void throwIntoHost(nb::handle exception) {
  if (PyObject_IsInstance(exception.ptr(), PyExc_Exception) != 1) {
    throw PythonPassThrough(share(exception));
  }
  Value object;
  try {
    object = exceptionOf(exception);
  } catch (nb::python_error& failure) {
    if (isA(failure.value(), Known::Error)) {
      throw;
    }
    throwIntoHost(failure.value());  // the parts of the Error can't be read: report why
  }
  host::throwException(object.get());
}

void throwIntoPython() {
  try {
    throw;
  } catch (const PythonPassThrough& passing) {
    raiseObject(passing.exception());
  } catch (const runtime::Interrupted&) {
    PyErr_SetNone(PyExc_KeyboardInterrupt);
    throw nb::python_error();
  } catch (const KExceptionEnvelope& envelope) {
    const Value object = matrix::from_kalvex(kcos::omCreateKCOSScalar(envelope.getException()));
    raiseObject(makeError(object.get(), 0));
  } catch (const IMsgIDException& error) {
    const std::vector<std::string> arguments = argumentsOf(error);
    raiseError(error.get_error_id(), host::catalogueText(error.get_error_id(), arguments),
               arguments);
  } catch (const std::bad_alloc&) {
    raiseInPython("KALVEX:OutOfMemory");
  }
}

}  // namespace kv::python
