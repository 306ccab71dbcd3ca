#include "executor/SerialUnits.h"

#include <cassert>
#include <utility>

namespace kv::runtime {

void SerialUnits::begin(const Stage& stage, UserFunctions& functions,
                        const ExecutionContext& context) {
  stage_ = &stage;
  rows_.emplace(*stage_);
  functions_ = &functions;
  context_ = &context;
}

std::optional<UnitResult> SerialUnits::next() {
  assert(stage_ != nullptr);
  if (units_.empty()) {
    return std::nullopt;
  }
  const std::string unit = std::move(units_.front());
  units_.pop_front();
  return runUnit(*stage_, *rows_, unit, *functions_, *context_);
}

}  // namespace kv::runtime
