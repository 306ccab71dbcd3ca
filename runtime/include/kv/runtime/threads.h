#pragma once

namespace kv::runtime {

/// The most threads that an evaluation may use.
inline constexpr int kMaxThreads = 1024;

}  // namespace kv::runtime
