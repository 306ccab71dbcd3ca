#pragma once

#include <deque>
#include <optional>
#include <string>

#include "executor/UnitService.h"

namespace kv::runtime {

/// Runs units one after the other, in the thread that asks for results.
class SerialUnits final : public UnitService {
 public:
  void begin(const StageScope& stage) override { stage_.emplace(stage); }
  void submit(std::string unit) override { units_.push_back(std::move(unit)); }
  std::optional<UnitOutcome> next() override;
  std::int64_t threads() const override { return 1; }
  std::int64_t window() const override { return 1; }

  /// There are none: at most one unit is submitted at a time.
  void cancelAfter(std::int64_t /*partition*/) override {}

 private:
  std::optional<BegunStage> stage_;
  std::deque<std::string> units_;
};

}  // namespace kv::runtime
