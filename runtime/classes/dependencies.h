#pragma once

#include <vector>

#include "kv/host/values.h"

/// The inputs of operations, in the form that their tasks receive.
namespace kv::runtime {

/// What a closure reads from one promise: {value, metadata, is a constant} if it is complete,
/// {task, output counted from 1} if it isn't.
struct Dependency {
  host::Value entry;
  bool isBroadcast = false;
};

/// Requires: the promise is complete.
Dependency completeDependency(const kxArray* promise);

/// The tasks of an operation with these inputs.
host::Value tasksOfOperation(const kxArray* operation, std::vector<Dependency> inputs);

}  // namespace kv::runtime
