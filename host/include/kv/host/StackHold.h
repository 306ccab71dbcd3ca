#pragma once

#include "kv/host/export.h"

namespace kv::host {

struct SessionState;

/// Keeps the live user stack of the current session as it is: while this lives, the stack that was
/// captured when it was made is the live one, so that a call which needs it repeatedly walks it
/// once. One that is made while another lives changes nothing.
///
/// Requires: a current session; made and destroyed within one call that runs no user's code.
/// Errors: those of the session's stack provider.
class KV_HOST_API StackHold {
 public:
  StackHold();
  ~StackHold();
  StackHold(const StackHold&) = delete;
  StackHold& operator=(const StackHold&) = delete;

 private:
  SessionState* session_;  ///< null if another one holds its stack
};

}  // namespace kv::host
