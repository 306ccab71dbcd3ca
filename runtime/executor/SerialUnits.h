#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "executor/UnitService.h"

namespace kv::runtime {

/// Runs units one after the other, in the thread that asks for results.
class SerialUnits final : public UnitService {
 public:
  void begin(const Stage& stage, UserFunctions& functions,
             const ExecutionContext& context) override;
  void submit(std::string unit) override { units_.push_back(std::move(unit)); }
  std::optional<UnitResult> next() override;
  std::int64_t window() const override { return 1; }
  void cancel() override { units_.clear(); }

 private:
  const Stage* stage_ = nullptr;
  std::optional<StageRows> rows_;
  UserFunctions* functions_ = nullptr;
  const ExecutionContext* context_ = nullptr;
  std::deque<std::string> units_;
};

}  // namespace kv::runtime
