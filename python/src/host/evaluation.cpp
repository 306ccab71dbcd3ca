#include "evaluation.h"

#include <nanobind/nanobind.h>

#include <chrono>
#include <memory>
#include <optional>

#include "errors.h"
#include "interpreter.h"
#include "kv/runtime/runtime.h"

namespace kv::python {

namespace {

using Clock = std::chrono::steady_clock;

/// Often enough for a person at a keyboard, and seldom enough not to slow down the evaluation when
/// the interpreter is busy, which releases the lock only every 5 ms.
constexpr auto kBetweenPolls = std::chrono::milliseconds(50);

class Watch : public runtime::EvaluationWatch {
 public:
  Watch() {
    if (hasInterpreterLock()) {
      unlocked_.emplace();
    }
  }

  void poll() override {
    sleepIfStopped();
    if (Clock::now() < nextPoll_) {
      return;
    }
    nextPoll_ = Clock::now() + kBetweenPolls;
    const Lock lock;
    if (PyErr_CheckSignals() != 0) {
      const nb::python_error raised;
      throw PythonPassThrough(share(raised.value()));
    }
  }

 private:
  std::optional<Unlock> unlocked_;
  Clock::time_point nextPoll_ = Clock::now() + kBetweenPolls;
};

std::unique_ptr<runtime::EvaluationWatch> makeWatch() { return std::make_unique<Watch>(); }

}  // namespace

void watchEvaluations() { runtime::setEvaluationWatch(makeWatch); }

}  // namespace kv::python
