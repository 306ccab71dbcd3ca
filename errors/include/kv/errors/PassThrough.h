#pragma once

#include <cxxabi.h>

#include <exception>
#include <utility>

#include "kv/errors/export.h"

namespace kv::errors {

/// Base of exceptions that aren't errors, such as an interrupt: they pass through calls, steps and
/// units as they are.
class KV_ERRORS_API PassThrough : public std::exception {
 public:
  ~PassThrough() override;
};

/// Runs `action`; `onFailure` gets the exception that it throws. What isn't an error (a
/// PassThrough, the end of the thread) passes as it is.
template <class Action, class OnFailure>
auto catchingFailures(Action&& action, OnFailure&& onFailure) -> decltype(action()) {
  try {
    return std::forward<Action>(action)();
  } catch (const PassThrough&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return std::forward<OnFailure>(onFailure)(std::current_exception());
  }
}

}  // namespace kv::errors
