#pragma once

#include <cstdint>

namespace kv::runtime {

/// How far an evaluation has come.
struct Progress {
  std::int64_t stage = 0;     ///< the one that runs, counted from 1; 0: none
  std::int64_t units = 0;     ///< of it that are merged
  std::int64_t numUnits = 0;  ///< of it: one for each partition
};

/// That of the innermost evaluation on this thread, for its watch.
const Progress& currentProgress() noexcept;

/// Sets it while a stage runs. Scopes nest, as evaluations do.
class ProgressScope {
 public:
  ProgressScope(std::int64_t stage, std::int64_t numUnits) noexcept;
  ~ProgressScope();
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;

  void setUnits(std::int64_t units) noexcept;

 private:
  Progress outer_;
};

}  // namespace kv::runtime
