#pragma once

#include <memory>

#include "execution/OpSpec.h"
#include "kv/host/values.h"

namespace kv::runtime {

/// The execution tasks, one of them, of an operation.
///
/// `dependencies`: a cell with an entry an input, see Plan; `isInputBroadcast`: a logical a input.
/// `function` and `reduction` are the FunctionHandle objects of a user's function, or null.
struct TaskParts {
  std::shared_ptr<const OpSpec> spec;
  const kxArray* function = nullptr;
  const kxArray* reduction = nullptr;
  const kxArray* stack = nullptr;
};
host::Value makeExecutionTask(const TaskParts& parts, const kxArray* dependencies,
                              const kxArray* isInputBroadcast);

}  // namespace kv::runtime
