#pragma once

#include "kv/runtime/IdentifiedError.h"

namespace kv::runtime {

/// A function can't be applied to its inputs.
class FunctionError : public IdentifiedError {
 public:
  using IdentifiedError::IdentifiedError;
};

}  // namespace kv::runtime
