#pragma once

#include <cstdint>

namespace kv::runtime {

/// The most memory that this process has had resident so far, in bytes, without what the process
/// that started it had; 0 if the system doesn't report it.
std::int64_t peakResidentBytes();

}  // namespace kv::runtime
