#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "classes/operationArity.h"
#include "kv/host/definitions.h"
#include "kv/host/values.h"
#include "plan/OpSpec.h"

namespace kv::runtime {

/// Fills in what a class decides about an operation: its operator, how it runs on materialised
/// values, and its label.
using DescribeOperation = void (*)(const kxArray* operation, OpSpec& spec);

/// One row of the table of operation classes.
///
/// `inputs` says what the constructor takes, in order:
///
/// - "NumInputs", "NumOutputs": the counts. "NumKept": both, where a selection comes before
///   as many inputs as there are outputs. "NumArrays": both, as many inputs as outputs.
/// - "DependsOnOnlyHead": that flag, false if it is left out. "PartitionStrategy": how the source
///   is cut, empty if it is left out. "Parameters": all that follow.
/// - "Options": the property of all operations. Any other name: a property of the class.
struct OperationClass {
  const char* name;
  std::vector<std::string_view> inputs;
  OperationArity arity;  ///< an operation has `minInputs` where the constructor isn't given a count
  DescribeOperation describe;
  void (*check)(const host::Call& call) = nullptr;  ///< of the constructor's inputs
  bool supportsPreview = false;        ///< what it gives for some of the rows is part of the whole
  const char* madeProperty = nullptr;  ///< a property that `check` sets, besides the inputs
};

/// The operations that are language classes.
std::span<const OperationClass> operationClasses();

}  // namespace kv::runtime
