#pragma once

#include <cstdint>
#include <string>

namespace kv::runtime {

/// Where an evaluation puts what doesn't fit in memory.
struct ScratchSettings {
  std::string folder{};                 ///< empty: nowhere
  std::int64_t limitBytes = INT64_MAX;  ///< of all files at a time
  bool spillsAlways = false;            ///< even what would fit
};

/// The settings of the process: KV_SCRATCH, or the system's folder for temporary files;
/// KV_SCRATCH_LIMIT, as sizes of memory are written; KV_SPILL=always, for tests.
/// Errors: "KALVEX:memory:Limit" with a limit that is none.
ScratchSettings defaultScratch();

/// Errors: "KALVEX:spill:Failed" with a folder that isn't one.
void requireScratchFolder(const std::string& folder);

}  // namespace kv::runtime
