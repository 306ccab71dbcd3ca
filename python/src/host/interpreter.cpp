// Which threads may run Python, and until when. A thread that asks for the lock of an interpreter
// that has ended would be ended in the middle of our code. So code that may run Python is counted;
// the end of the interpreter waits a while for it, and a thread that comes later sleeps for good.

#include "interpreter.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace kv::python {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLongestWait = std::chrono::seconds(5);
constexpr auto kBetweenLooks = std::chrono::milliseconds(1);

/// Number of scopes, on all threads, that run code of this module.
std::atomic<int> scopes{0};
/// The same for this thread.
thread_local int tScopes = 0;

/// The thread that ends the interpreter; none as long as the interpreter runs.
std::atomic<std::thread::id> endingThread;

bool isStopped() noexcept {
  const std::thread::id ending = endingThread;
  return ending != std::thread::id() && ending != std::this_thread::get_id();
}

void sleepWithLockIfStopped() noexcept {
  if (isStopped()) {
    PyEval_SaveThread();
    sleepForGood();
  }
}

class ThreadState {
 public:
  ThreadState() noexcept : outer_(PyGILState_Ensure()), state_(PyEval_SaveThread()) {}
  ~ThreadState() {
    if (!nanobind::is_alive()) {
      return;
    }
    const ModuleScope scope;
    sleepIfStopped();
    try {
      PyEval_RestoreThread(state_);
    } catch (const abi::__forced_unwind&) {
      sleepForGood();
    }
    PyGILState_Release(outer_);  // deletes the state, which may run users' finalizers
  }
  ThreadState(const ThreadState&) = delete;
  ThreadState& operator=(const ThreadState&) = delete;

 private:
  PyGILState_STATE outer_;
  PyThreadState* state_;
};

/// A child of `fork` has only this thread.
[[maybe_unused]] const int kAtFork = pthread_atfork(nullptr, nullptr, [] { scopes = tScopes; });

}  // namespace

bool hasInterpreterLock() noexcept {
#if PY_VERSION_HEX >= 0x030D0000
  PyThreadState* const current = PyThreadState_GetUnchecked();
#else
  PyThreadState* const current = _PyThreadState_UncheckedGet();
#endif
  return current != nullptr && current == PyGILState_GetThisThreadState();
}

void sleepForGood() noexcept {
  scopes -= std::exchange(tScopes, 0);
  for (;;) {
    pause();
  }
}

void sleepIfStopped() noexcept {
  if (isStopped()) {
    sleepForGood();
  }
}

ModuleScope::ModuleScope() noexcept {
  ++tScopes;
  ++scopes;
}

ModuleScope::~ModuleScope() {
  --scopes;
  --tScopes;
}

Entry::Entry() {
  if (isStopped()) {
    // Ends the thread silently. (Creating an Error runs Python code, which isn't safe here.)
    PyErr_SetNone(PyExc_SystemExit);
    throw nanobind::python_error();
  }
}

Lock::Lock() noexcept {
  if (!hasInterpreterLock()) {
    sleepIfStopped();
  }
  try {
    state_ = PyGILState_Ensure();
  } catch (const abi::__forced_unwind&) {
    sleepForGood();
  }
}

Lock::~Lock() { PyGILState_Release(state_); }

Unlock::~Unlock() {
  sleepIfStopped();
  try {
    PyEval_RestoreThread(state_);
  } catch (const abi::__forced_unwind&) {
    sleepForGood();
  }
}

OutsideScope::OutsideScope() noexcept : depth_(std::exchange(tScopes, 0)) { scopes -= depth_; }

OutsideScope::~OutsideScope() {
  tScopes = depth_;
  scopes += depth_;
  sleepIfStopped();
}

UserScope::UserScope() noexcept : depth_(tScopes) {
  sleepWithLockIfStopped();
  scopes -= std::exchange(tScopes, 0);
}

UserScope::~UserScope() {
  tScopes = depth_;
  scopes += depth_;
  sleepWithLockIfStopped();
}

void keepThreadState() {
  if (PyGILState_GetThisThreadState() == nullptr) {
    sleepIfStopped();
    static thread_local const ThreadState state;
  }
}

bool stopOtherThreads() {
  endingThread = std::this_thread::get_id();
  const Clock::time_point latest = Clock::now() + kLongestWait;
  while (scopes > tScopes && Clock::now() < latest) {
    const Unlock unlock;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  const PyThreadState* first = PyInterpreterState_ThreadHead(PyInterpreterState_Get());
  return first != nullptr && PyThreadState_Next(const_cast<PyThreadState*>(first)) != nullptr;
}

}  // namespace kv::python
