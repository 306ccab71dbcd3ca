#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kv/host/values.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/Datastore.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// What a step of a plan does to the rows that reach it.
enum class OpKind : std::uint8_t {
  Read,         ///< gives the rows of a source, as a table
  Variable,     ///< takes columns out of a table
  Elementwise,  ///< a function of matching rows
  Filter,       ///< keeps the rows where the first input is true
  Aggregate,    ///< reduces all rows; ends a pass
  Client,       ///< a function of whole values, run once
  Choose,       ///< the second or the third input, as the first says, one logical; in a stage the
                ///< first input, a value, for every row of the second
  Pass,         ///< its one input as it comes
  Recorded,     ///< can be planned, but not run
  Select,       ///< one output of a step that has several
  Input,        ///< a value that is there before the pass
  Collect,      ///< keeps all rows, for a result; ends a pass
  Outputs,      ///< the end of a stage: its inputs are what the stage gives
};

/// Which function a step runs: one of the runtime's own, or a user's through its FunctionHandle.
struct OpFunction {
  const ElementFunction* element = nullptr;
  const AggregateFunction* aggregate = nullptr;
  MissingRule missing = MissingRule::Skip;

  bool isBuiltIn() const { return element != nullptr || aggregate != nullptr; }
};

/// An operation as one C++ value, carried by its execution task.
///
/// It refers to no host object; a user's function stands in a slot of the task's processor factory.
struct OpSpec {
  OpKind kind = OpKind::Client;
  std::size_t numInputs = 0;
  std::size_t numOutputs = 1;
  std::string label{};   ///< what it does, as plans show it
  std::string origin{};  ///< the user's line, "file:line"; empty if none is known
  OpFunction function{};
  std::shared_ptr<const Datastore> source{};  ///< of Read
  bool isTrusted = true;  ///< false where function or source came from a file without trust
  std::vector<std::string> variables{};  ///< of Variable
  bool content = false;                  ///< of Variable: an array, not a table
  bool givesLogical = false;             ///< of Elementwise: results of another type are refused
  bool spreads = true;         ///< of Elementwise: inputs with one row stand for every row
  std::string savedRelease{};  ///< of Recorded: another release saved the array, which can't be run
  std::size_t index = 0;       ///< of Select: the output; of Input: its ordinal, from 1

  /// True for a step that runs a function of the user's own.
  bool runsUsersFunction() const {
    const bool isFunction =
        kind == OpKind::Elementwise || kind == OpKind::Aggregate || kind == OpKind::Client;
    return isFunction && !function.isBuiltIn();
  }
};

/// The C++ value of a processor factory.
struct OpSpecValue final : host::NativeValue {
  explicit OpSpecValue(std::shared_ptr<const OpSpec> value) : spec(std::move(value)) {}

  std::shared_ptr<const OpSpec> spec;
};

/// What an operation is called in messages: its label and, if it is known, the user's line.
std::string describe(const OpSpec& spec);

/// "file:line" of the innermost frame of a stack value; empty for an empty stack.
std::string originOf(const kxArray* stack);

/// The built-in function that a function_handle names, "kv.element.NAME" or "kv.aggregate.NAME"
/// with ".propagate" behind it for the form that propagates missing values; none for another
/// handle.
OpFunction builtInFunction(const kxArray* handle);

/// True if a FunctionHandle holds a built-in function.
bool isBuiltInHandle(const kxArray* functionHandle);

/// How plans call the function behind a handle.
std::string functionLabel(const kxArray* handle);

}  // namespace kv::runtime
