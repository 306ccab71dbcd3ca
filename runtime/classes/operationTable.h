#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "execution/OpSpec.h"
#include "kv/host/definitions.h"
#include "kv/host/values.h"

namespace kv::runtime {

/// Fills what a class decides of an operation: kind, label and what belongs to the kind.
using DescribeOperation = void (*)(const kxArray* operation, OpSpec& spec);

/// One row of the table of operation classes.
///
/// `inputs` says what the constructor takes, in order:
///
/// - "NumInputs", "NumOutputs": the counts. "NumKept": both, where a selection stands in front of
///   as many inputs as there are outputs. "NumArrays": both, as many inputs as outputs.
/// - "DependsOnOnlyHead": that flag, false if it is left out. "Parameters": all that follow.
/// - "Options": the property of all operations. Any other name: a property of the class.
struct OperationClass {
  const char* name;
  std::vector<std::string_view> inputs;
  DescribeOperation describe;
  void (*check)(const host::Call& call) = nullptr;  ///< of the constructor's inputs
  double numInputs = 0;                             ///< where the constructor isn't told
  double numOutputs = 1;
};

/// The operations that are language classes.
std::span<const OperationClass> operationClasses();

/// The class of a row, but for its methods.
host::ClassDefinition definitionOf(const OperationClass& row);

// The operations that are native classes and completed here.
void describeElementwise(const kxArray* operation, OpSpec& spec);
void describeSlicewise(const kxArray* operation, OpSpec& spec);

}  // namespace kv::runtime
