#include "executor/scratchSettings.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "executor/memoryLimit.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

/// Empty if the variable isn't set.
std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

ScratchSettings defaultScratch() {
  ScratchSettings settings{.folder = variable("KV_SCRATCH")};
  if (settings.folder.empty()) {
    std::error_code failure;
    settings.folder = std::filesystem::temp_directory_path(failure).string();
  }
  if (const std::string limit = variable("KV_SCRATCH_LIMIT"); !limit.empty()) {
    settings.limitBytes = memoryLimitOf(limit);
  }
  settings.spillsAlways = variable("KV_SPILL") == "always";
  return settings;
}

void requireScratchFolder(const std::string& folder) {
  std::error_code failure;
  if (!std::filesystem::is_directory(folder, failure)) {
    errors::raiseStep("KALVEX:spill:Failed",
                      {folder, failure ? failure.message() : "it isn't a folder"});
  }
}

}  // namespace kv::runtime
