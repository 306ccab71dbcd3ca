#pragma once

#include "kv/host/stack.h"

namespace kv::host {

/// Marks that a native method, or a body of a function, method or constructor, runs. Counts how
/// many are nested on this thread, so that infinite recursion becomes an error before it exhausts
/// the native stack.
///
/// Each takes about 2 KiB of stack, through Python too.
///
/// Errors: "KALVEX:RecursionLimit" with the number of running bodies, when it reaches `kMaxBodies`,
/// or the thread's stack is low.
class BodyScope {
 public:
  static constexpr int kMaxBodies = 1000;

  BodyScope() {
    if (running_ >= kMaxBodies || isStackLow()) {
      refuse();
    }
    ++running_;
  }
  ~BodyScope() { --running_; }
  BodyScope(const BodyScope&) = delete;
  BodyScope& operator=(const BodyScope&) = delete;

 private:
  [[noreturn]] static void refuse();

  static constinit thread_local int running_;
};

}  // namespace kv::host
