// How an operation becomes a task: its class describes it as an OpSpec, its functions and its line
// go to a processor factory, and both to an ExecutionTask. Classes have no code besides their row
// in the file of an operator; the native classes of the core are completed here with the same
// method.

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <string>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/directEvaluation.h"
#include "classes/loadedOperations.h"
#include "classes/operationConstructor.h"
#include "classes/recordedOperation.h"
#include "driver/OpSpecValue.h"
#include "values/columnValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

bool allTrue(const kxArray* logicals) {
  if (kxGetClassID(logicals) != kxLOGICAL_CLASS) {
    host::raise("KALVEX:validateattributes:invalidType",
                {"Input", "logical array", kxGetClassName(logicals)});
  }
  const bool* flags = kxGetLogicals(logicals);
  const std::size_t count = kxGetNumberOfElements(logicals);
  return count > 0 && std::all_of(flags, flags + count, [](bool flag) { return flag; });
}

/// What an operation has in its properties.
struct Holdings {
  bool function = false;
  bool reduction = false;
  bool operand = false;
};

/// The inputs of a task, with the operand that the operation itself has: after the others, or
/// before them if its flag is set. A user's function gets it as it is, whatever it is.
Value withOperand(const kxArray* operation, const kxArray* dependencies, const OpSpec& spec) {
  Value operand = host::getProperty(operation, "Operand");
  std::vector<Value> entry;
  entry.push_back(spec.callsUser ? asBroadcast(operand.get()) : std::move(operand));
  entry.push_back(host::makeEmptyDouble());
  entry.push_back(host::makeLogical(true));
  std::vector<Value> entries;
  for (std::size_t i = 0; i < kxGetNumberOfElements(dependencies); ++i) {
    entries.push_back(matrix::sharedCopy(kxGetCell(dependencies, i)));
  }
  const bool isFirst = host::toLogical(host::getProperty(operation, "Flag").get());
  entries.insert(isFirst ? entries.begin() : entries.end(), host::makeCell(std::move(entry)));
  return host::makeCell(std::move(entries));
}

/// The processor factory of an operation: its description, its functions and its line, with random
/// streams if its options require them.
Value makeFactory(const kxArray* operation, Holdings holds,
                  const std::shared_ptr<const OpSpec>& spec, const kxArray* stack) {
  const Value function = holds.function ? host::getProperty(operation, "FunctionHandle") : nullptr;
  const Value reduction = holds.reduction ? host::getProperty(operation, "ReduceHandle") : nullptr;
  const Value factory = host::call(kSpecFactory, {function.get(), reduction.get(), stack});
  host::setNativeValue(factory.get(), std::make_unique<OpSpecValue>(spec));
  return host::call("addGlobalState", {operation, factory.get()});
}

/// An operation's createExecutionTasks(operation, dependencies, isInputBroadcast): one task.
///
/// `dependencies`: a cell with one entry per input, see Plan; `isInputBroadcast`: one logical per
/// input.
/// Errors: "KALVEX:array:OperationArity" if the number of dependencies differs from the operation's
///         number of inputs, which a closure doesn't check.
void taskOfOperation(const Call& call, Holdings holds, const OperationClass& row) {
  const kxArray* operation = call.in(0);
  auto spec = std::make_shared<OpSpec>();
  spec->numInputs = countOf(operation, "NumInputs");
  spec->numOutputs = countOf(operation, "NumOutputs");
  requireArity(kxGetClassName(operation), {spec->numInputs, spec->numInputs},
               kxGetNumberOfElements(call.in(1)), spec->numOutputs);
  const Value stack = host::getProperty(operation, "Stack");
  spec->origin = originOf(stack.get());
  describeOperation(row, operation, *spec);
  Value dependencies = matrix::sharedCopy(call.in(1));
  if (holds.operand) {
    dependencies = withOperand(operation, dependencies.get(), *spec);
    ++spec->numInputs;
  }
  const Value factory = makeFactory(operation, holds, spec, stack.get());
  const bool isBroadcast =
      (spec->endsRows() && !spec->makesRows()) || spec->isClientOnly() || allTrue(call.in(2));
  const Value strategy = isBroadcast ? host::call(kBroadcastStrategy) : host::makeEmptyDouble();
  const Value numOutputs = host::makeDouble(static_cast<double>(spec->numOutputs));
  call.out(0, host::call(kExecutionTask,
                         {dependencies.get(), factory.get(), strategy.get(), numOutputs.get()}));
}

host::MethodDefinition taskMethod(const OperationClass& row) {
  const auto takes = [&row](std::string_view input) {
    return std::ranges::find(row.inputs, input) != row.inputs.end();
  };
  const Holdings holds{takes("FunctionHandle"), takes("ReduceHandle"), takes("Operand")};
  return method(
      "createExecutionTasks",
      [holds, &row](const Call& call) { taskOfOperation(call, holds, row); }, 3, 3);
}

/// getCheckedFunctionHandle(operation): the function_handle inside.
void getCheckedFunctionHandle(const Call& call) {
  const Value function = host::getProperty(call.in(0), "FunctionHandle");
  call.out(0, host::getProperty(function.get(), "Handle"));
}

/// setOldKey(key, oldKey): the entry of `key` replaces that of `oldKey`.
void setOldKey(const Call& call) {
  host::setSlot(call.in(0), "OldId", host::getProperty(call.in(1), "Id"));
}

/// Keys are saved with their arrays, so a mere count could collide with that of another process.
void constructKey(const Call& call) {
  static const std::string process = to_string(boost::uuids::random_generator()());
  static std::atomic<std::uint64_t> next{1};
  const std::uint64_t number = next.fetch_add(1, std::memory_order_relaxed);
  host::setSlot(call.in(0), "Id", host::makeString(fmt::format("cache_{}_{}", process, number)));
}

}  // namespace

void defineOperations(host::Session& session) {
  for (const OperationClass* row : operationClasses()) {
    if (!row->isNative) {
      host::ClassDefinition definition = definitionOf(*row);
      definition.methods.push_back(taskMethod(*row));
      define(session, std::move(definition));
    }
  }
  complete(session, kElementwiseOperation,
           {taskMethod(operationClass(kElementwiseOperation)),
            method("directEvaluateImpl", directEvaluate, 1, -1),
            method("getCheckedFunctionHandle", getCheckedFunctionHandle, 1, 1)});
  complete(session, kSlicewiseOperation,
           {taskMethod(operationClass(kSlicewiseOperation)),
            method("getCheckedFunctionHandle", getCheckedFunctionHandle, 1, 1)});
  complete(session, kOperation,
           {protectedMethod(
               "isInputBroadcast",
               [](const Call& call) { call.out(0, matrix::sharedCopy(call.in(1))); }, 2, 2)});
  session.addLoadValidator(validateOperations);
  define(session, {.name = kCacheEntryKey,
                   .properties = {readOnly("Id"), readOnly("OldId")},
                   .constructor = constructor(constructKey, 1, 1),
                   .methods = {method("setOldKey", setOldKey, 2, 2)}});
}

}  // namespace kv::runtime
