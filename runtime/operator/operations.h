#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/GroupFold.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"
#include "operator/OpSpec.h"
#include "operator/operationArity.h"

// How operations of the host become operators. Each operator's file ends with its row: its name,
// what reads it from bytes, and the classes of operations that it runs. The table of all rows is in
// operators.cpp: a new operation class is a file with such a row, and a line of that table.

namespace kv::runtime {

/// A built-in function; none of them for a user-defined one.
struct BuiltInFunction {
  const ElementFunction* element = nullptr;
  const AggregateFunction* aggregate = nullptr;
  const GroupFunction* group = nullptr;  ///< of all aggregates, and of some that are none
  AggregateForm form{};

  bool operator==(const BuiltInFunction&) const = default;
};

/// A function that an operation was recorded with, without what calls it.
struct RecordedFunction {
  BuiltInFunction builtIn{};
  std::string label{};  ///< as plans show it
  std::string name{};   ///< by which it may be found elsewhere; empty for one without a name
  bool isTrusted = true;
  bool isFree = false;  ///< may run in any session, on any thread
};

/// A source that an operation was recorded with, as its strategy cuts it.
struct RecordedSource {
  std::shared_ptr<const Datastore> store;
  bool isTrusted = true;
};

/// A value of any class that a user gave.
struct RecordedValue {
  std::string className{};
  std::optional<double> number{};     ///< of a numeric scalar
  std::optional<std::string> text{};  ///< of a char row or a string
};

/// What an operation was recorded with, or is about to be: its properties, as plain values.
///
/// Errors: for a property that isn't of the kind asked for, which only a file can bring about.
class RecordedOperation {
 public:
  virtual ~RecordedOperation() = default;

  virtual std::size_t numInputs() const = 0;
  virtual double number(std::string_view property) const = 0;
  virtual bool flag(std::string_view property) const = 0;
  virtual std::string text(std::string_view property) const = 0;
  virtual std::vector<std::string> texts(std::string_view property) const = 0;
  virtual RecordedValue value(std::string_view property) const = 0;

  /// The values in "Parameters".
  virtual std::vector<RecordedValue> parameters() const = 0;

  virtual RecordedFunction function(std::string_view property) const = 0;

  /// The source in "Datastore", cut by "PartitionStrategy".
  /// Errors: those of partitionSource().
  virtual RecordedSource source() const = 0;

  /// How many partitions a strategy makes: 1 unless it says more, at most `most`.
  virtual std::int64_t partitionsOf(std::string_view property, std::int64_t most) const = 0;

  /// True if values that are tagged as broadcast reach its function so.
  virtual bool passesTagged() const = 0;
};

/// One class of operations.
///
/// `inputs` says what the constructor takes, in order:
///
/// - "NumInputs", "NumOutputs": the counts. "NumKept": both, where a selection comes before
///   as many inputs as there are outputs. "NumArrays": both, as many inputs as outputs.
/// - "DependsOnOnlyHead": that flag, false if it is left out. "PartitionStrategy": how the source
///   is cut, empty if it is left out. "Parameters": all that follow.
/// - "Options": the property of all operations. Any other name: a property of the class.
struct OperationClass {
  std::string_view name{};
  std::vector<std::string_view> inputs{};
  OperationArity
      arity{};  ///< an operation has `minInputs` where the constructor isn't given a count

  /// Fills in what the class decides about an operation: its operator, how it runs on materialised
  /// values, and its label. The number of its inputs and outputs is known already. Refuses what
  /// can't run, since the user's line is still known then.
  void (*describe)(const RecordedOperation& operation, OpSpec& spec) = nullptr;

  /// Refuses what a constructor can refuse, beyond the arity.
  void (*check)(const RecordedOperation& inputs) = nullptr;

  bool supportsPreview = false;      ///< what it gives for some of the rows is part of the whole
  bool hasCacheKey = false;          ///< each operation has a key of its own, "CacheEntryKey"
  std::string_view shownProperty{};  ///< a property that plans show, perhaps a long one
  bool isNative = false;             ///< a class of the core, which is completed here
};

/// One operator: how it is read from bytes, and the classes that it runs.
struct OperatorRow {
  std::string_view name{};
  OperatorPtr (*read)(ByteReader& bytes) = nullptr;  ///< null for classes that run in the client
  std::vector<OperationClass> classes{};
};

/// All classes of operations.
std::span<const OperationClass* const> operationClasses();

/// The class of that name.
/// Requires: there is one.
const OperationClass& operationClass(std::string_view name);

/// What reads an operator without options.
template <OperatorPtr (*make)()>
OperatorPtr readPlain(ByteReader& /*bytes*/) {
  return make();
}

/// Notes the function of an operation in its description.
RecordedFunction noteFunction(const RecordedOperation& operation, OpSpec& spec);

/// Notes the second function of a reduction, which must be trusted, too.
RecordedFunction noteReduction(const RecordedOperation& operation, OpSpec& spec);

/// Describes a function that makes rows of its own.
void describeNewRows(const RecordedOperation& operation, OpSpec& spec, OperatorPtr op);

/// A number of rows. Errors: the id with any other number than a whole one from `least` on.
std::int64_t rowCount(double rows, double least, std::string_view id);

/// `n rows`, or `1 row`.
std::string countedRows(std::int64_t rows);

}  // namespace kv::runtime
