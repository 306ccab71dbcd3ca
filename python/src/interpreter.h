#pragma once

#include <cxxabi.h>
#include <nanobind/nanobind.h>

#include <utility>

/// The interpreter's lock, and its end as threads see it that it doesn't wait for.
///
/// Before 3.14, Python ends a daemon thread by unwinding its stack when the thread takes the lock
/// after the interpreter began to end. Frames of C++ can't be unwound like that: their destructors
/// would use the interpreter without its lock, and `noexcept` would end the process. So such a
/// thread sleeps until the process ends instead:
///
/// 1. At exit, `stopOtherThreads` waits until every other thread is asleep or outside this module:
///    in Python, or in the user's code that the module called.
/// 2. From then on a thread that comes back from the user's code, or needs the lock again, sleeps;
///    one that enters the module anew gets SystemExit.
/// 3. Where the lock is taken and around the user's code, the unwinding is caught in that frame.
namespace kv::python {

/// The calling thread runs code of this module. Scopes nest.
class ModuleScope {
 public:
  ModuleScope() noexcept;
  ~ModuleScope();
  ModuleScope(const ModuleScope&) = delete;
  ModuleScope& operator=(const ModuleScope&) = delete;
};

/// A call from Python into this module.
/// Errors: SystemExit after `stopOtherThreads`, on another thread. Requires: the lock.
class Entry : public ModuleScope {
 public:
  Entry();
};

/// Takes the lock; does nothing where the thread has it.
class Lock {
 public:
  Lock() noexcept;
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  PyGILState_STATE state_;
};

/// Runs `body` with the lock, and with the right to run code of the user's, if there is an
/// interpreter. For what may be dropped at any time, on any thread.
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

/// Sleeps for good, if this thread was stopped. Requires: not the lock.
void sleepIfStopped() noexcept;

[[noreturn]] void sleepForGood() noexcept;

/// The user's code runs: the thread is outside this module for that time.
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

/// Calls code of the user's, which takes what time it likes. Requires: the lock.
template <class Body>
decltype(auto) inUserCode(Body&& body) {
  const UserScope scope;
  try {
    return std::forward<Body>(body)();
  } catch (const abi::__forced_unwind&) {
    sleepForGood();
  }
}

/// At the end of the interpreter: see above. Waits no longer than a few seconds for threads that
/// neither come back to Python nor poll.
/// Result: whether there are other threads. Requires: the lock.
bool stopOtherThreads();

}  // namespace kv::python
