#pragma once

#include <nanobind/nanobind.h>

#include <cstddef>
#include <vector>

#include "interpreter.h"

namespace kv::python {

namespace nb = nanobind;

class Watch;

/// Makes evaluations release the interpreter's lock and check for signals (an interrupt from the
/// keyboard) while they run.
void watchEvaluations();

/// A call from Python that may evaluate, on its thread: users' functions see its context variables
/// on any thread, and it keeps the exceptions that they raise until it ends.
///
/// Requires: the interpreter's lock for all but `current`.
class CallContext {
 public:
  /// `hasWorkers`: false for a call whose functions run on its own thread.
  explicit CallContext(bool hasWorkers);
  ~CallContext();
  CallContext(const CallContext&) = delete;
  CallContext& operator=(const CallContext&) = delete;

  /// The innermost of this thread; null for none.
  static CallContext* current() noexcept;

  /// Null without workers.
  PyObject* variables() const { return variables_.ptr(); }

  /// Result: the number by which `raised` finds it.
  std::size_t keep(nb::handle exception);

  /// Null for a number that `keep` hasn't returned.
  nb::object raised(std::size_t number) const;

 private:
  nb::object variables_{};
  std::vector<nb::object> raised_{};
  CallContext* outer_;
};

/// The call of a user's function, perhaps on a worker of an evaluation: it has the evaluation's
/// context variables, its changes of them stay its own, and an interrupt of the evaluation is
/// raised in it.
///
/// Requires: the interpreter's lock at begin and end.
class UserCall {
 public:
  /// Errors: runtime::Cancelled if the evaluation was interrupted already.
  UserCall();
  ~UserCall();
  UserCall(const UserCall&) = delete;
  UserCall& operator=(const UserCall&) = delete;

  /// The call that evaluates; null if none of Python does.
  CallContext* caller() const;

 private:
  Watch* watch_;  ///< null on the thread of the evaluation
  nb::object variables_{};
};

}  // namespace kv::python
