#pragma once

namespace kv::runtime {

/// The number of threads that the process may use: the processors that it may run on, and at most
/// the share of them that its control group (cgroup v2) grants. At least 1.
int availableThreads();

/// The number of threads for evaluations: that of the environment variable KV_THREADS, or else
/// `availableThreads()`.
/// Errors: "KALVEX:executor:Threads" with the text for anything but a whole number from 1 to
/// kMaxThreads.
int defaultThreads();

/// Errors: "KALVEX:executor:Threads" with the number unless it is from 1 to kMaxThreads.
void requireThreads(double threads);

}  // namespace kv::runtime
