#pragma once

namespace kv::runtime {

/// 2^53: all whole numbers up to it are exact as doubles. Beyond, neighbouring ones share a double.
inline constexpr double kMaxExactWhole = 0x1p53;

}  // namespace kv::runtime
