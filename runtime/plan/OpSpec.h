#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/host/values.h"
#include "operator/operators.h"

namespace kv::runtime {

struct OpSpec;

/// Runs an operation once, in the client, on whole values.
///
/// `factory`: its processor factory, with the functions.
/// Result: a value for each output.
using RunWhole = std::vector<host::Value> (*)(const OpSpec& spec, const kxArray* factory,
                                              const std::vector<const kxArray*>& inputs);

/// An operation as one C++ value, carried by its execution task.
///
/// It refers to no host object; users' functions are in slots of the task's processor factory.
struct OpSpec {
  std::size_t numInputs = 0;
  std::size_t numOutputs = 1;
  std::string label{};          ///< what it does, as plans show it
  std::string origin{};         ///< the user's line, "file:line"; empty if none is known
  OperatorPtr op{};             ///< how it runs over rows; null if it doesn't
  RunWhole runWhole = nullptr;  ///< how it runs on whole values; null: its function is called
  bool callsUser = false;       ///< it calls a function of the user's own
  bool isTrusted = true;        ///< false where function or source came from a file without trust
  bool isChoice = false;        ///< the second or the third input, depending on the first
  bool isRunnable = true;       ///< false for what can be recorded and planned, but not run
  std::string savedRelease{};   ///< another release saved the array, which can't be run
  std::optional<std::size_t> selects{};  ///< of a builder: it is this output of its only input

  /// True if its output is whole once the rows of its inputs have ended.
  bool endsRows() const { return op != nullptr && op->rowEffect() == RowEffect::End; }

  /// True if it runs in the client alone.
  bool isClientOnly() const { return op == nullptr && isRunnable; }

  /// The source that it reads; null if it reads none.
  std::shared_ptr<const Datastore> source() const { return op != nullptr ? op->source() : nullptr; }
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

}  // namespace kv::runtime
