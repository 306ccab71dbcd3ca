#pragma once

#include <vector>

#include "kv/host/values.h"

/// What operations read, as their tasks are given it.
namespace kv::runtime {

/// What a closure reads from one promise: {value, metadata, is a constant} when it is complete,
/// {task, output counted from 1} when it isn't.
struct Dependency {
  host::Value entry;
  bool isBroadcast = false;
};

/// Requires: the promise is complete.
Dependency completeDependency(const kxArray* promise);

/// The tasks of an operation with these inputs.
host::Value tasksOf(const kxArray* operation, std::vector<Dependency> inputs);

}  // namespace kv::runtime
