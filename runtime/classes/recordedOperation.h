#pragma once

#include "kv/host/definitions.h"
#include "kv/host/values.h"
#include "operator/operations.h"

/// Operations of the session as operators see them: plain values, which are read here, once, when a
/// closure becomes a task. After that the plan and the engine know operators only.
namespace kv::runtime {

/// Fills in what the class of an operation decides about it, from the operation's properties.
void describeOperation(const OperationClass& row, const kxArray* operation, OpSpec& spec);

/// Refuses what the class refuses of the inputs of its constructor.
void checkInputs(const OperationClass& row, const host::Call& call);

/// True if the options of an operation ask for values that are tagged as broadcast.
bool passesTagged(const kxArray* operation);

}  // namespace kv::runtime
