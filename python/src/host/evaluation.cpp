// While an evaluation runs without the interpreter's lock, Python must still get its signals and
// see progress. The calling thread takes the lock a few times a second for both; a signal handler
// that raises ends the evaluation.

#include "evaluation.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "errors.h"
#include "kv/runtime/Progress.h"
#include "kv/runtime/runtime.h"
#include "pyObjects.h"

namespace kv::python {

namespace {

using Clock = std::chrono::steady_clock;

/// An evaluation that takes less shows no progress.
constexpr auto kBeforeProgress = std::chrono::milliseconds(500);

/// Often enough for a person at a keyboard, and seldom enough not to slow down the evaluation when
/// the interpreter is busy, which releases the lock only every 5 ms.
constexpr auto kBetweenPolls = std::chrono::milliseconds(50);

thread_local CallContext* tCall = nullptr;

}  // namespace

class Watch : public runtime::EvaluationWatch {
 public:
  Watch() : caller_(tCall) {
    if (hasInterpreterLock()) {
      unlocked_.emplace();
    }
  }

  ~Watch() override {
    if (isShown_) {
      const Lock lock;
      try {
        show({}, 0);
      } catch (const nb::python_error&) {
        PyErr_SetInterrupt();  // again, now that the evaluation has ended
      }
    }
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  void poll() override {
    sleepIfStopped();
    if (Clock::now() < nextPoll_) {
      return;
    }
    nextPoll_ = Clock::now() + kBetweenPolls;
    const Lock lock;
    if (PyErr_CheckSignals() != 0) {
      endWith(nb::python_error());
    }
    try {
      showProgress();
    } catch (const nb::python_error& raised) {
      endWith(raised);
    }
  }

  /// The call that began the evaluation, and outlives it; null for none.
  CallContext* caller() const { return caller_; }

  /// The workers that are in users' functions. Requires: the interpreter's lock.
  std::vector<unsigned long>& calling() { return calling_; }

  /// True once an interrupt has been raised in those. Requires: the interpreter's lock.
  bool isInterrupted() const { return isInterrupted_; }

 private:
  /// Ends the evaluation with what a signal handler raised, and users' functions on workers too.
  [[noreturn]] void endWith(const nb::python_error& raised) {
    isInterrupted_ = true;
    for (const unsigned long thread : calling_) {
      PyThreadState_SetAsyncExc(thread, PyExc_KeyboardInterrupt);
    }
    throw PythonPassThrough(share(raised.value()));
  }

  /// Requires: the interpreter's lock.
  void showProgress() {
    const runtime::Progress& progress = runtime::currentProgress();
    const Clock::duration elapsed = Clock::now() - start_;
    if (elapsed < kBeforeProgress || progress.stage == 0) {
      return;
    }
    isShown_ = true;
    show(progress, std::chrono::duration<double>(elapsed).count());
  }

  /// A failure to show something doesn't end an evaluation; an interrupt while it is shown does.
  void show(const runtime::Progress& progress, double seconds) {
    const auto id = reinterpret_cast<std::size_t>(this);
    try {
      const nb::handle line = known(Known::ShowProgress);
      inUserCode([&] { line(id, progress.stage, progress.units, progress.numUnits, seconds); });
    } catch (nb::python_error& failure) {
      if (!failure.matches(PyExc_Exception)) {
        throw;
      }
      failure.discard_as_unraisable("the progress of an evaluation");
    }
  }

  Clock::time_point start_ = Clock::now();
  Clock::time_point nextPoll_ = start_ + kBetweenPolls;
  bool isShown_ = false;
  std::optional<Unlock> unlocked_;
  CallContext* caller_;
  std::vector<unsigned long> calling_;
  bool isInterrupted_ = false;
};

namespace {

std::unique_ptr<runtime::EvaluationWatch> makeWatch() { return std::make_unique<Watch>(); }

Watch* watchOfWorker() {
  const runtime::CancellationToken* unit = runtime::CancellationScope::current();
  return unit != nullptr ? dynamic_cast<Watch*>(unit->watch()) : nullptr;
}

nb::object checked(PyObject* created) {
  if (created == nullptr) {
    throw nb::python_error();
  }
  return nb::steal(created);
}

}  // namespace

void watchEvaluations() { runtime::setEvaluationWatch(makeWatch); }

CallContext::CallContext(bool hasWorkers)
    : variables_(hasWorkers ? checked(PyContext_CopyCurrent()) : nb::object()),
      outer_(std::exchange(tCall, this)) {}

CallContext::~CallContext() { tCall = outer_; }

CallContext* CallContext::current() noexcept { return tCall; }

std::size_t CallContext::keep(nb::handle exception) {
  raised_.push_back(nb::borrow(exception));
  return raised_.size() - 1;
}

nb::object CallContext::raised(std::size_t number) const {
  return number < raised_.size() ? raised_[number] : nb::object();
}

UserCall::UserCall() : watch_(watchOfWorker()) {
  if (watch_ == nullptr) {
    return;
  }
  if (watch_->isInterrupted()) {
    throw runtime::Cancelled();  // the interrupt could not reach a function that begins now
  }
  if (watch_->caller() != nullptr && watch_->caller()->variables() != nullptr) {
    variables_ = checked(PyContext_Copy(watch_->caller()->variables()));
    if (PyContext_Enter(variables_.ptr()) != 0) {
      throw nb::python_error();
    }
  }
  watch_->calling().push_back(PyThread_get_thread_ident());
}

UserCall::~UserCall() {
  if (watch_ == nullptr) {
    return;
  }
  const unsigned long thread = PyThread_get_thread_ident();
  std::erase(watch_->calling(), thread);
  PyThreadState_SetAsyncExc(thread, nullptr);  // one that the function didn't get to see
  if (variables_.is_valid()) {
    PyContext_Exit(variables_.ptr());
  }
}

CallContext* UserCall::caller() const { return watch_ != nullptr ? watch_->caller() : tCall; }

}  // namespace kv::python
