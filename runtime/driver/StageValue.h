#pragma once

#include <utility>

#include "engine/Stage.h"
#include "kv/host/values.h"

namespace kv::runtime {

/// The C++ value of a composite processor. Its property "Factories" has the factory of each step.
struct StageValue final : host::NativeValue {
  explicit StageValue(Stage value) : stage(std::move(value)) {}

  Stage stage;
};

}  // namespace kv::runtime
