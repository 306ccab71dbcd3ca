#pragma once

#include <nanobind/nanobind.h>

#include <atomic>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "host/evaluation.h"
#include "host/interpreter.h"
#include "kv/array.h"

/// How Python calls array/: with errors as Python's exceptions, and without the interpreter's lock.
///
/// A call that waits for a session may wait for another thread's evaluation, which needs the
/// interpreter's lock for users' functions and signals. So no call keeps it while it waits. Calls
/// that only record something keep it otherwise, because they take less time than the lock does.
namespace kv::python {

namespace nb = nanobind;

/// Where the line of an error comes from.
enum class Line {
  Live,      ///< the call itself: what is recorded is refused where it is written
  Recorded,  ///< the operation that failed, if the error has its line
};

/// Throws the current C++ exception as a Python one. Requires: the interpreter's lock.
[[noreturn]] void throwArrayError(Line line);

/// The exception for an id of the catalogue, about the line that runs now.
nb::object makeArrayError(const std::string& identifier, std::vector<std::string> arguments);

/// The live Python stack without frames of this package and of NumPy, as tuples of file, name
/// and line, innermost first.
nb::list liveFrames();

/// Marks a call in progress. Errors: "KALVEX:session:Forked" in a child of a process with sessions.
class ArrayCall {
 public:
  ArrayCall();
  ~ArrayCall();
  ArrayCall(const ArrayCall&) = delete;
  ArrayCall& operator=(const ArrayCall&) = delete;

 private:
  Entry entry_;
};

/// Marks that an evaluation may be in progress on a thread that isn't Python's. May end on another
/// thread.
class BackgroundCall {
 public:
  BackgroundCall() noexcept;
  ~BackgroundCall();
  BackgroundCall(const BackgroundCall&) = delete;
  BackgroundCall& operator=(const BackgroundCall&) = delete;

  /// True where such evaluations may never end: at the end of the interpreter, and in a child of a
  /// process with sessions.
  static bool isAbandoned() noexcept;
};

namespace detail {

template <bool kKeepsLock, class Body>
auto inArrays(Line line, Body&& body) {
  const CallContext context(line == Line::Recorded);
  try {
    const ArrayCall call;
    [[maybe_unused]] const std::conditional_t<kKeepsLock, std::monostate, Unlock> unlocked{};
    return std::forward<Body>(body)();
  } catch (nb::python_error&) {
    throw;
  } catch (...) {
    throwArrayError(line);
  }
}

}  // namespace detail

/// Runs `body` without the interpreter's lock.
template <class Body>
auto inArrays(Line line, Body&& body) {
  return detail::inArrays<false>(line, std::forward<Body>(body));
}

/// Runs `body`, which records something and neither reads nor computes much. It has the
/// interpreter's lock unless it waits for the session.
template <class Body>
auto recorded(Body&& body) {
  return detail::inArrays<true>(Line::Live, std::forward<Body>(body));
}

/// Makes calls that wait for a session release the interpreter's lock.
void releaseLockWhileWaiting();

/// A session as Python holds it.
class ArraySession {
 public:
  /// The session until it is closed.
  struct Slot {
    std::atomic<std::shared_ptr<kv::Session>> session;
  };

  ArraySession();

  /// Errors: "KALVEX:session:Closed".
  std::shared_ptr<kv::Session> session() const;

  /// Frees everything once no call uses the session. Does nothing if it is closed already.
  void close();

  /// For the end of the interpreter: closes all, unless a call is in progress on a thread that
  /// doesn't return to Python.
  static void closeAll();

 private:
  std::shared_ptr<Slot> slot_;
};

void bindArrays(nb::module_& module);

/// Adds what takes rows, places in rows, or tables apart.
void bindRows(nb::module_& module);

/// Adds arrays in memory and generated ones to the class of sessions.
void bindMemory(nb::class_<ArraySession>& session);

/// Adds what writes rows to files.
void bindWriting(nb::class_<ArraySession>& session);

}  // namespace kv::python
