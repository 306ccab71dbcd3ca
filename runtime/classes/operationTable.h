#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "kv/host/definitions.h"
#include "kv/host/values.h"
#include "plan/OpSpec.h"

namespace kv::runtime {

/// Fills in what a class decides about an operation: its operator, how it runs on whole values, and
/// its label.
using DescribeOperation = void (*)(const kxArray* operation, OpSpec& spec);

/// How many outputs an operation has.
enum class OutputRule {
  Any,
  One,
  PerInput,  ///< one for each input
  PerKept,   ///< one for each input after the first, which selects rows
};

/// How many inputs operations of a class take, and how many outputs they have.
struct OperationArity {
  std::size_t minInputs = 0;
  std::size_t maxInputs = std::numeric_limits<std::size_t>::max();
  OutputRule outputs = OutputRule::Any;
};

/// Errors: "KALVEX:array:OperationArity" with the class, what it takes and what came.
void requireArity(std::string_view className, const OperationArity& arity, std::size_t numInputs,
                  std::size_t numOutputs);

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
  bool supportsPreview = false;  ///< what it gives for some of the rows is part of the whole
};

/// The operations that are language classes.
std::span<const OperationClass> operationClasses();

/// The number in a property of an operation that counts its inputs or outputs.
std::size_t countOf(const kxArray* operation, kcos::NameRef property);

/// The class of a row, but for its methods. A loaded object is held to the row's arity.
host::ClassDefinition definitionOf(const OperationClass& row);

/// True if the options of an operation ask for values that are tagged as broadcast.
bool passesTagged(const kxArray* operation);

// The operations that are native classes and completed here.
void describeElementwise(const kxArray* operation, OpSpec& spec);
void describeSlicewise(const kxArray* operation, OpSpec& spec);

}  // namespace kv::runtime
