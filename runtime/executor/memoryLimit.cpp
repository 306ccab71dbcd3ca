#include "executor/memoryLimit.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "column/MemoryLedger.h"
#include "executor/controlGroups.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();

struct ByteUnit {
  std::string_view name;
  double bytes;
};

constexpr ByteUnit kUnits[] = {
    {"", 1},      {"b", 1},      {"kb", 1e3},       {"mb", 1e6},       {"gb", 1e9},
    {"tb", 1e12}, {"kib", 1024}, {"mib", 1L << 20}, {"gib", 1L << 30}, {"tib", 1L << 40}};

[[noreturn]] void refuseLimit(std::string given) {
  errors::raiseStep("KALVEX:memory:Limit", {std::move(given), shownBytes(kLeastMemoryLimit)});
}

std::int64_t checked(double bytes, std::string given) {
  if (!(bytes >= static_cast<double>(kLeastMemoryLimit) &&
        bytes < static_cast<double>(kUnlimited))) {
    refuseLimit(std::move(given));
  }
  return static_cast<std::int64_t>(bytes);
}

/// The number in a file; unlimited for "max", and without the file.
std::int64_t grantedBytes(const fs::path& file) {
  std::ifstream text(file);
  std::int64_t bytes = 0;
  return text >> bytes ? bytes : kUnlimited;
}

}  // namespace

std::int64_t availableMemory(const fs::path& root) {
  std::int64_t granted = std::int64_t{::sysconf(_SC_PHYS_PAGES)} * ::sysconf(_SC_PAGESIZE);
  const ControlGroups groups(root, "memory");
  for (const fs::path& group : groups.v2) {
    granted = std::min(granted, grantedBytes(group / "memory.max"));
  }
  for (const fs::path& group : groups.v1) {
    granted = std::min(granted, grantedBytes(group / "memory.limit_in_bytes"));
  }
  return granted;
}

std::int64_t defaultMemoryLimit() {
  const char* setting = std::getenv("KV_MEMORY_LIMIT");
  if (setting == nullptr || *setting == '\0') {
    static const std::int64_t available = availableMemory();
    return std::max(available / 2, kLeastMemoryLimit);
  }
  try {
    return memoryLimitOf(setting);
  } catch (const errors::StepError&) {
    refuseLimit("KV_MEMORY_LIMIT=" + std::string(setting));
  }
}

std::int64_t memoryLimitOf(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  std::string name(rest, end);
  name.erase(0, std::min(name.find_first_not_of(' '), name.size()));
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
  const auto* unit = std::ranges::find(kUnits, name, &ByteUnit::name);
  if (error != std::errc() || unit == std::end(kUnits)) {
    refuseLimit(std::string(text));
  }
  return checked(number * unit->bytes, std::string(text));
}

std::int64_t memoryLimitOf(double bytes) { return checked(bytes, fmt::format("{}", bytes)); }

}  // namespace kv::runtime
