#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "kv/host/values.h"
#include "plan/Plan.h"

namespace kv::runtime {

/// The host objects that a plan's numbers mean.
///
/// Lives: within one evaluation; it keeps the objects alive.
struct PlanHandles {
  std::vector<host::Value> factories{};  ///< processor factories, by PlanTask::factory
  std::vector<host::Value> values{};     ///< by PlanInput::value
  std::vector<host::Value> promises{};   ///< by result; empty where no promise is completed

  const kxArray* factoryOf(const PlanTask& task) const { return factories[task.factory].get(); }
};

/// A plan, and the session's side of it.
struct ClientPlan {
  Plan plan;
  PlanHandles handles;
};

/// How plans show a value: the value itself if it is short, or its size and class.
std::string shownValue(const kxArray* value);

}  // namespace kv::runtime
