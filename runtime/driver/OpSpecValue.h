#pragma once

#include <memory>
#include <string>
#include <utility>

#include "kv/host/values.h"
#include "operator/OpSpec.h"

namespace kv::runtime {

/// The C++ value of a processor factory.
struct OpSpecValue final : host::NativeValue {
  explicit OpSpecValue(std::shared_ptr<const OpSpec> value) : spec(std::move(value)) {}

  std::shared_ptr<const OpSpec> spec;
};

/// "file:line" of the innermost frame of a stack value; empty for an empty stack.
std::string originOf(const kxArray* stack);

}  // namespace kv::runtime
