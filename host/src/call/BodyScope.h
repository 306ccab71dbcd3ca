#pragma once

#include <cstddef>

namespace kv::host {

/// A native method, or a body of a function, method or constructor, runs. Counts how many run
/// inside one another on this thread, so that a recursion without end becomes an error before it
/// uses up the native stack.
///
/// One takes about 2 KiB of stack, through Python too.
///
/// Errors: "KALVEX:RecursionLimit" with the number of bodies that run, when there are `kMaxBodies`,
/// or less than `kStackReserve` bytes of the thread's stack are left.
class BodyScope {
 public:
  static constexpr int kMaxBodies = 1000;
  static constexpr std::size_t kStackReserve = 96 * 1024;

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
  static bool isStackLow() noexcept;
  [[noreturn]] static void refuse();

  static constinit thread_local int running_;
};

}  // namespace kv::host
