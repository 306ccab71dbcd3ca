#include "executor/threadCount.h"

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>

#include "executor/controlGroups.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/threads.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

constexpr double kUnlimited = std::numeric_limits<double>::infinity();

[[noreturn]] void refuseThreads(std::string given) {
  errors::raiseStep("KALVEX:executor:Threads", {std::move(given), std::to_string(kMaxThreads)});
}

int processors() {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  return ::sched_getaffinity(0, sizeof mask, &mask) == 0 ? std::max(CPU_COUNT(&mask), 1) : 1;
}

/// The microseconds of a quota over those of its period; unlimited for "max" and -1, and without
/// the numbers.
double shareOf(std::istream& quotaText, std::istream& periodText) {
  double quota = 0;
  double period = 0;
  return quotaText >> quota && periodText >> period && quota > 0 && period > 0 ? quota / period
                                                                               : kUnlimited;
}

}  // namespace

double grantedProcessors(const fs::path& root) {
  double granted = kUnlimited;
  const ControlGroups groups(root, "cpu");
  for (const fs::path& group : groups.v2) {
    std::ifstream both(group / "cpu.max");
    granted = std::min(granted, shareOf(both, both));
  }
  for (const fs::path& group : groups.v1) {
    std::ifstream quota(group / "cpu.cfs_quota_us");
    std::ifstream period(group / "cpu.cfs_period_us");
    granted = std::min(granted, shareOf(quota, period));
  }
  return granted;
}

int availableThreads(const fs::path& root) {
  const double granted = std::ceil(std::min(grantedProcessors(root), 1.0 * kMaxThreads));
  return std::clamp(processors(), 1, static_cast<int>(granted));
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
