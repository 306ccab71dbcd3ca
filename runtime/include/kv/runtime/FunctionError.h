#pragma once

#include "kv/runtime/IdentifiedError.h"

namespace kv::runtime {

/// A function that can't be applied to what it was given.
class FunctionError : public IdentifiedError {
 public:
  using IdentifiedError::IdentifiedError;
};

}  // namespace kv::runtime
