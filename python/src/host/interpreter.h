#pragma once

#include <cxxabi.h>
#include <nanobind/nanobind.h>

#include <utility>

/// The interpreter's lock, and what the end of the interpreter means for threads that it doesn't
/// wait for.
///
/// Before 3.14, Python ends a daemon thread by unwinding its stack when the thread takes the lock
/// after the interpreter began to end. C++ frames must not be unwound like that: their destructors
/// would use the interpreter without its lock, and `noexcept` would end the process. So such a
/// thread sleeps until the process ends instead:
///
/// 1. At exit, `stopOtherThreads` waits until every other thread is asleep or outside this module:
///    in Python, in user code that the module called, or waiting for a thread that may be asleep.
/// 2. From then on, a thread that returns from there, or needs the lock again, sleeps. A thread
/// that
///    enters the module gets SystemExit.
/// 3. Where the lock is taken, and around user code, the unwinding is caught in that frame.
namespace kv::python {

/// Marks that the calling thread runs code of this module. Scopes nest.
class ModuleScope {
 public:
  ModuleScope() noexcept;
  ~ModuleScope();
  ModuleScope(const ModuleScope&) = delete;
  ModuleScope& operator=(const ModuleScope&) = delete;
};

/// A call from Python into this module.
/// Requires: the lock. Errors: SystemExit on other threads after `stopOtherThreads`.
class Entry : public ModuleScope {
 public:
  Entry();
};

/// True if the calling thread has the lock.
bool hasInterpreterLock() noexcept;

/// Takes the lock; does nothing if the thread has it already.
class Lock {
 public:
  Lock() noexcept;
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  PyGILState_STATE state_;
};

/// Keeps the interpreter's state of a thread that Python hasn't started until the thread ends, so
/// that what functions store in `threading.local` is still there in later calls.
void keepThreadState();

/// Runs `body` with the lock and the right to run user code, if the interpreter is alive. For
/// objects that may be dropped at any time, on any thread.
template <class Body>
void ifAlive(Body&& body) {
  if (nanobind::is_alive()) {
    const ModuleScope scope;
    const Lock lock;
    std::forward<Body>(body)();
  }
}

/// Releases the lock.
class Unlock {
 public:
  Unlock() noexcept : state_(PyEval_SaveThread()) {}
  ~Unlock();
  Unlock(const Unlock&) = delete;
  Unlock& operator=(const Unlock&) = delete;

 private:
  PyThreadState* state_;
};

/// Sleeps forever if this thread was stopped. Requires: the lock isn't held.
void sleepIfStopped() noexcept;

[[noreturn]] void sleepForGood() noexcept;

/// Marks that the thread is outside this module for a while, though it will return.
/// Requires: the lock isn't held at the end.
class OutsideScope {
 public:
  OutsideScope() noexcept;
  ~OutsideScope();
  OutsideScope(const OutsideScope&) = delete;
  OutsideScope& operator=(const OutsideScope&) = delete;

 private:
  int depth_;
};

/// The same while user code runs.
/// Requires: the lock.
class UserScope {
 public:
  UserScope() noexcept;
  ~UserScope();
  UserScope(const UserScope&) = delete;
  UserScope& operator=(const UserScope&) = delete;

 private:
  int depth_;
};

/// Calls user code, which may take any amount of time. Requires: the lock.
template <class Body>
decltype(auto) inUserCode(Body&& body) {
  const UserScope scope;
  try {
    return std::forward<Body>(body)();
  } catch (const abi::__forced_unwind&) {
    sleepForGood();
  }
}

/// For the end of the interpreter; see above. Waits no longer than a few seconds for threads that
/// neither return to Python nor poll.
/// Result: whether there are other threads. Requires: the lock.
bool stopOtherThreads();

}  // namespace kv::python
