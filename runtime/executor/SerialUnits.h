#pragma once

#include <deque>
#include <optional>
#include <string>

#include "executor/UnitService.h"

namespace kv::runtime {

/// Runs units one after the other, in the thread that asks for results.
class SerialUnits final : public UnitService {
 public:
  /// Errors: those of StageRows.
  explicit SerialUnits(const StageScope& scope) : scope_(scope), rows_(scope.stage) {}

  void submit(std::string unit) override { units_.push_back(std::move(unit)); }
  std::optional<UnitResult> next() override;
  std::int64_t threads() const override { return 1; }
  std::int64_t window() const override { return 1; }

  /// There are none: at most one unit is submitted at a time.
  void cancelAfter(std::int64_t /*partition*/) override {}

 private:
  StageScope scope_;
  StageRows rows_;
  std::deque<std::string> units_;
};

}  // namespace kv::runtime
