// Streams of array/ for programs in the same process. They are pulled and released by foreign code,
// with the interpreter's lock or without it, and the evaluation may need that lock: so none of the
// callbacks waits with it.

#include "array/streams.h"

#include <arrow/c/abi.h>
#include <nanobind/nanobind.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "array/arrayCalls.h"
#include "array/results.h"
#include "host/evaluation.h"
#include "host/interpreter.h"
#include "host/pyObjects.h"
#include "host/texts.h"
#include "kv/stream.h"

namespace kv::python {

namespace {

/// A stream, and whether its evaluation may be in progress.
struct Held {
  ArrowArrayStream rows{};
  SharedPyObject atBegin{};              ///< raises what forbids the evaluation; null afterwards
  std::string refusal{};                 ///< what it raised
  std::optional<BackgroundCall> call{};  ///< from the first batch to the end
};

Held& heldBy(ArrowArrayStream* stream) { return *static_cast<Held*>(stream->private_data); }

/// Python handles signals on this thread only.
unsigned long mainThread = 0;

/// Calls `body` without the interpreter's lock.
template <class Body>
void withoutLock(Body&& body) {
  if (!hasInterpreterLock()) {
    body();
    return;
  }
  const Unlock unlocked;
  body();
}

/// Takes an interrupt that came while the main thread waits; Python raises it once that goes on.
bool isUninterrupted() {
  if (PyThread_get_thread_ident() != mainThread) {
    return true;
  }
  const Lock lock;
  if (PyErr_CheckSignals() == 0) {
    return true;
  }
  if (PyErr_ExceptionMatches(PyExc_KeyboardInterrupt) != 0) {
    PyErr_Clear();
    PyErr_SetInterrupt();
  } else {
    PyErr_WriteUnraisable(nullptr);
  }
  return false;
}

/// False if the evaluation may not begin or go on. Takes the lock.
bool mayPull(Held& held) {
  if (BackgroundCall::isAbandoned()) {
    held.refusal = "The stream belongs to the process that opened it, before it ends.";
    return false;
  }
  if (held.atBegin == nullptr) {
    return held.refusal.empty();
  }
  const Lock lock;
  const SharedPyObject check = std::move(held.atBegin);
  try {
    inUserCode([&] { nb::handle(check.get())(); });
  } catch (nb::python_error& error) {
    held.refusal = toUtf8(nb::str(error.value()), "text");
  }
  return held.refusal.empty();
}

int getSchema(ArrowArrayStream* stream, ArrowSchema* schema) {
  ArrowArrayStream& rows = heldBy(stream).rows;
  return rows.get_schema(&rows, schema);
}

int getNext(ArrowArrayStream* stream, ArrowArray* batch) {
  Held& held = heldBy(stream);
  *batch = {};
  if (!mayPull(held)) {
    return EPERM;
  }
  int code = 0;
  withoutLock([&] {
    held.call.emplace();
    code = held.rows.get_next(&held.rows, batch);
    if (code != 0 || batch->release == nullptr) {
      held.call.reset();
    }
  });
  return code;
}

const char* getLastError(ArrowArrayStream* stream) {
  Held& held = heldBy(stream);
  return held.refusal.empty() ? held.rows.get_last_error(&held.rows) : held.refusal.c_str();
}

/// Once the interpreter ends, the evaluation may wait for its lock forever, so it is left alone.
void release(ArrowArrayStream* stream) {
  std::unique_ptr<Held> held(&heldBy(stream));
  stream->release = nullptr;
  if (!nb::is_alive() || (held->call && BackgroundCall::isAbandoned())) {
    held.release();
    return;
  }
  withoutLock([&] {
    held->rows.release(&held->rows);
    held.reset();
  });
}

void dropCapsule(PyObject* capsule) noexcept {
  auto* stream =
      static_cast<ArrowArrayStream*>(PyCapsule_GetPointer(capsule, "arrow_array_stream"));
  if (stream->release != nullptr) {
    stream->release(stream);
  }
  delete stream;
}

/// `atEnd` gets the facts of the evaluation.
StreamHooks hooksOf(nb::handle atEnd) {
  return {.whileWaiting = isUninterrupted, .atEnd = [call = share(atEnd)](const Facts& facts) {
            ifAlive([&] {
              try {
                inUserCode([&] { nb::handle(call.get())(toPython(facts)); });
              } catch (nb::python_error& failure) {
                failure.discard_as_unraisable("the facts of a stream");
              }
            });
          }};
}

template <class Rows>
nb::object streamOf(const Rows& rows, nb::handle atBegin, nb::handle atEnd) {
  auto held = std::make_unique<Held>();
  held->atBegin = share(atBegin);
  StreamHooks hooks = hooksOf(atEnd);
  inArrays(Line::Live, [&] { toStream(rows, &held->rows, std::move(hooks)); });
  auto stream = std::make_unique<ArrowArrayStream>(
      ArrowArrayStream{getSchema, getNext, getLastError, release, held.release()});
  PyObject* capsule = PyCapsule_New(stream.get(), "arrow_array_stream", dropCapsule);
  if (capsule == nullptr) {
    stream->release(stream.get());
    throw nb::python_error();
  }
  static_cast<void>(stream.release());
  return nb::steal(capsule);
}

}  // namespace

void bindStreams(nb::module_& module) {
  mainThread = nb::cast<unsigned long>(
      nb::module_::import_("threading").attr("main_thread")().attr("ident"));
  module.def(
      "table_stream", streamOf<Table>,
      nb::sig("def table_stream(table: TableHandle, at_begin: object, at_end: object) -> object"));
  module.def(
      "array_stream", streamOf<Array>,
      nb::sig("def array_stream(array: ArrayHandle, at_begin: object, at_end: object) -> object"));
}

}  // namespace kv::python
