#include "kv/host/stack.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>

namespace kv::host {

namespace {

constexpr std::size_t kStackReserve = 96 * 1024;

struct StackRange {
  std::uintptr_t lowest = 0;
  std::uintptr_t end = 0;
};

/// The stack of this thread; empty if the system doesn't report it.
StackRange stackOfThread() noexcept {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
    return {};
  }
  void* lowest = nullptr;
  std::size_t bytes = 0;
  const bool isKnown = pthread_attr_getstack(&attributes, &lowest, &bytes) == 0;
  pthread_attr_destroy(&attributes);
  const auto start = reinterpret_cast<std::uintptr_t>(lowest);
  return isKnown ? StackRange{start, start + bytes} : StackRange{};
}

}  // namespace

bool isStackLow() noexcept {
  static thread_local const StackRange stack = stackOfThread();
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  // A frame elsewhere is on a stack that a library switched to, of which nothing is known.
  return here >= stack.lowest && here < stack.end && here - stack.lowest < kStackReserve;
}

}  // namespace kv::host
