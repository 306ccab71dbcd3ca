#pragma once

#include <filesystem>

namespace kv::runtime {

/// Processors that the process's control group and those above it grant, such as 1.5: `cpu.max` in
/// cgroup v2, `cpu.cfs_quota_us` and `cpu.cfs_period_us` in v1; infinity without a quota.
///
/// `root`: where the system's files are.
double grantedProcessors(const std::filesystem::path& root);

/// The number of threads that the process may use: the processors that it may run on, and at most
/// those that its control groups grant, rounded up. At least 1.
///
/// `root`: where the system's files are, for tests.
int availableThreads(const std::filesystem::path& root = "/");

/// The number of threads for evaluations: that of the environment variable KV_THREADS, or else
/// `availableThreads()`.
/// Errors: "KALVEX:executor:Threads" with the text for anything but a whole number from 1 to
/// kMaxThreads.
int defaultThreads();

/// Errors: "KALVEX:executor:Threads" with the number unless it is from 1 to kMaxThreads.
void requireThreads(double threads);

}  // namespace kv::runtime
