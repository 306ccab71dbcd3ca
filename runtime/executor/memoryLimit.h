#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace kv::runtime {

/// The least limit: what reading needs at all.
inline constexpr std::int64_t kLeastMemoryLimit = 1'000'000;

/// Bytes of memory that the process may use: those of the machine, and at most what its control
/// group and those above it grant (memory.max in cgroup v2, memory.limit_in_bytes in v1).
///
/// `root`: where the system's files are, for tests.
std::int64_t availableMemory(const std::filesystem::path& root = "/");

/// The limit for evaluations: that of the environment variable KV_MEMORY_LIMIT, or else half of
/// `availableMemory()`, which is determined once.
/// Errors: those of memoryLimitOf().
std::int64_t defaultMemoryLimit();

/// The number of bytes that a text denotes: a decimal number, perhaps with a unit ("512MB" is 512
/// times 10^6, "1.5GiB" 1.5 times 2^30).
/// Errors: "KALVEX:memory:Limit" with the text for anything else, or a number that is too small.
std::int64_t memoryLimitOf(std::string_view text);

/// The same for a number.
std::int64_t memoryLimitOf(double bytes);

}  // namespace kv::runtime
