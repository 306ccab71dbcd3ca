#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/runUnit.h"

namespace kv::runtime {

/// Runs the units of one stage: in this thread, in others, or elsewhere.
///
/// 1. `begin` comes first, once; then units are submitted in ascending order of partitions.
/// 2. Results may come in any order; OrderedMerge restores that of partitions.
/// 3. After `cancel` no further result comes.
class UnitService {
 public:
  virtual ~UnitService() = default;

  /// Lives: all three outlive the service.
  virtual void begin(const Stage& stage, UserFunctions& functions,
                     const ExecutionContext& context) = 0;

  /// Takes a unit in its byte form.
  virtual void submit(std::string unit) = 0;

  /// The next result; none when all units that were submitted have given theirs.
  /// Errors: those of runUnit().
  virtual std::optional<UnitResult> next() = 0;

  /// How many units may be submitted ahead of those whose results were merged: enough to keep the
  /// service busy, few enough that early results don't fill the memory.
  virtual std::int64_t window() const = 0;

  /// Drops the units that haven't begun.
  virtual void cancel() = 0;
};

}  // namespace kv::runtime
