#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <functional>

namespace kv::test {

inline constexpr std::size_t kSmallStackBytes = 256 * 1024;

/// Runs `work` on a thread with a stack too small for a recursion over a long chain.
inline void runOnSmallStack(const std::function<void()>& work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStackBytes), 0);
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace kv::test
