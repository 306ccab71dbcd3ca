#pragma once

#include <cerrno>

namespace kv::runtime {

/// Makes a system call until no signal interrupts it.
template <class Call>
auto retried(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

}  // namespace kv::runtime
