#include "executor/Admission.h"

#include <algorithm>

#include "column/pool.h"

namespace kv::runtime {

Admission::Admission(const StageRows& rows, std::int64_t threads)
    : rows_(rows), threads_(threads), ledger_(currentLedger()) {}

std::optional<std::int64_t> Admission::next(std::int64_t end) {
  if (!postponed_.empty() || isPostponed_) {
    if (!inProgress_.empty()) {
      return std::nullopt;
    }
    const std::int64_t partition = postponed_.extract(postponed_.begin()).value();
    inProgress_.emplace(partition, rows_.estimateBytes(partition));
    alone_ = partition;
    isPostponed_ = true;
    return partition;
  }
  if (next_ >= end || !fits(next_)) {
    return std::nullopt;
  }
  alone_ = inProgress_.empty() ? std::optional(next_) : std::nullopt;
  inProgress_.emplace(next_, rows_.estimateBytes(next_));
  return next_++;
}

bool Admission::finish(std::int64_t partition) {
  inProgress_.erase(partition);
  isPostponed_ = false;
  return alone_ == partition;
}

void Admission::cancelAfter(std::int64_t partition) {
  postponed_.erase(postponed_.upper_bound(partition), postponed_.end());
  inProgress_.erase(inProgress_.upper_bound(partition), inProgress_.end());
}

/// Units that wait for a thread need no memory yet. What those in progress use counts twice, which
/// errs on the safe side.
bool Admission::fits(std::int64_t partition) const {
  if (inProgress_.empty() || ledger_ == nullptr) {
    return true;
  }
  std::int64_t most = rows_.estimateBytes(partition);
  for (const auto& [other, bytes] : inProgress_) {
    most = std::max(most, bytes);
  }
  const std::int64_t running = std::min(threads_, std::ssize(inProgress_) + 1);
  return most <= (ledger_->limit() - ledger_->bytes_allocated()) / running;
}

}  // namespace kv::runtime
