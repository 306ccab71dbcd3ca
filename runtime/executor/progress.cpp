#include "kv/runtime/Progress.h"

namespace kv::runtime {

namespace {

thread_local Progress progressHere;

}  // namespace

const Progress& currentProgress() noexcept { return progressHere; }

ProgressScope::ProgressScope(std::int64_t stage, std::int64_t numUnits) noexcept
    : outer_(progressHere) {
  progressHere = {stage, 0, numUnits};
}

ProgressScope::~ProgressScope() { progressHere = outer_; }

void ProgressScope::setUnits(std::int64_t units) noexcept { progressHere.units = units; }

}  // namespace kv::runtime
