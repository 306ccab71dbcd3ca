#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "column/MemoryLedger.h"
#include "engine/StageRows.h"

namespace kv::runtime {

/// Decides which unit of a stage starts next, so that those in progress fit into the memory limit.
///
/// 1. Units start in ascending order of partitions, each when its estimate fits next to those in
///    progress; one may always be in progress.
/// 2. An estimate may be wrong: a unit that was refused memory while others were in progress, or
///    while results of partitions after its own were held, is postponed. It runs again when nothing
///    else does, and without those results.
/// 3. So a unit that fails for lack of memory in the end had what it would have had on one thread:
///    how many threads there are never decides whether an evaluation succeeds.
///
/// A unit that runs again calls users' functions again. In stages that call some, estimates are
/// doubled, so that it hardly ever happens.
class Admission {
 public:
  /// `threads`: how many units may be in progress at a time.
  Admission(const StageRows& rows, std::int64_t threads);

  /// The partition of the unit to start next, below `end`; none if one that is in progress must end
  /// first, or if all have started. It counts as in progress.
  std::optional<std::int64_t> next(std::int64_t end);

  /// Notes that a unit has ended.
  /// Result: true if it was the only one in progress from its beginning to its end.
  bool finish(std::int64_t partition);

  /// Lets a unit that has ended run again, alone.
  void postpone(std::int64_t partition) { postponed_.insert(partition); }

  /// Forgets the units after `partition`, which were cancelled.
  void cancelAfter(std::int64_t partition);

 private:
  bool fits(std::int64_t partition) const;

  const StageRows& rows_;
  std::int64_t threads_;
  const MemoryLedger* ledger_;
  std::int64_t next_ = 0;                            ///< that hasn't started yet
  std::set<std::int64_t> postponed_;                 ///< lowest first
  std::map<std::int64_t, std::int64_t> inProgress_;  ///< partitions, and their estimates
  std::optional<std::int64_t> alone_;                ///< in progress, with no other so far
  bool isPostponed_ = false;                         ///< the one in progress runs again
};

}  // namespace kv::runtime
