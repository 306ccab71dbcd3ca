#include "executor/threadCount.h"

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>

#include "kv/errors/StepError.h"
#include "kv/runtime/threads.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuseThreads(std::string given) {
  errors::raiseStep("KALVEX:executor:Threads", {std::move(given), std::to_string(kMaxThreads)});
}

int processors() {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  return ::sched_getaffinity(0, sizeof mask, &mask) == 0 ? std::max(CPU_COUNT(&mask), 1) : 1;
}

/// What a group's `cpu.max` grants: "max 100000" or "<microseconds> <of a period>".
double grantedQuota(const fs::path& group) {
  std::ifstream file(group / "cpu.max");
  double quota = 0;
  double period = 0;
  return file >> quota >> period && period > 0 ? quota / period
                                               : std::numeric_limits<double>::infinity();
}

/// The least that the process's group or one of those above it grants.
double grantedProcessors() {
  const fs::path root("/sys/fs/cgroup");
  double granted = grantedQuota(root);
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    constexpr std::string_view kUnified = "0::/";
    if (!line.starts_with(kUnified)) {
      continue;
    }
    fs::path group = root;
    for (const fs::path& part : fs::path(line.substr(kUnified.size()))) {
      group /= part;
      granted = std::min(granted, grantedQuota(group));
    }
  }
  return granted;
}

}  // namespace

int availableThreads() {
  const double granted = std::ceil(std::min(grantedProcessors(), 1.0 * kMaxThreads));
  return std::clamp(processors(), 1, std::max(static_cast<int>(granted), 1));
}

int defaultThreads() {
  const char* setting = std::getenv("KV_THREADS");
  if (setting == nullptr || *setting == '\0') {
    return availableThreads();
  }
  const std::string_view text(setting);
  int threads = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), threads);
  if (error != std::errc() || end != text.data() + text.size() || threads < 1 ||
      threads > kMaxThreads) {
    refuseThreads("KV_THREADS=" + std::string(text));
  }
  return threads;
}

void requireThreads(double threads) {
  if (!(threads >= 1 && threads <= kMaxThreads && std::floor(threads) == threads)) {
    refuseThreads(fmt::format("{}", threads));
  }
}

}  // namespace kv::runtime
