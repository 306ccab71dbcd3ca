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
#include "classes/operationTable.h"
#include "driver/OpSpecValue.h"
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

/// The properties of an operation that hold functions.
struct FunctionSlots {
  bool function = false;
  bool reduction = false;
};

/// The processor factory of an operation: its description, its functions and its line, with random
/// streams if its options require them.
Value makeFactory(const kxArray* operation, FunctionSlots slots,
                  const std::shared_ptr<const OpSpec>& spec, const kxArray* stack) {
  const Value function = slots.function ? host::getProperty(operation, "FunctionHandle") : nullptr;
  const Value reduction = slots.reduction ? host::getProperty(operation, "ReduceHandle") : nullptr;
  const Value factory = host::call(kSpecFactory, {function.get(), reduction.get(), stack});
  host::setNativeValue(factory.get(), std::make_unique<OpSpecValue>(spec));
  return host::call("addGlobalState", {operation, factory.get()});
}

/// createExecutionTasks(operation, dependencies, isInputBroadcast): one task.
///
/// `dependencies`: a cell with one entry per input, see Plan; `isInputBroadcast`: one logical per
/// input.
/// Errors: "KALVEX:array:OperationArity" if the number of dependencies differs from the operation's
///         number of inputs, which a closure doesn't check.
void createTasks(const Call& call, FunctionSlots slots, DescribeOperation describe) {
  const kxArray* operation = call.in(0);
  auto spec = std::make_shared<OpSpec>();
  spec->numInputs = countOf(operation, "NumInputs");
  spec->numOutputs = countOf(operation, "NumOutputs");
  requireArity(kxGetClassName(operation), {spec->numInputs, spec->numInputs},
               kxGetNumberOfElements(call.in(1)), spec->numOutputs);
  const Value stack = host::getProperty(operation, "Stack");
  spec->origin = originOf(stack.get());
  describe(operation, *spec);
  const Value factory = makeFactory(operation, slots, spec, stack.get());
  const bool isBroadcast =
      (spec->endsRows() && !spec->makesRows()) || spec->isClientOnly() || allTrue(call.in(2));
  const Value strategy = isBroadcast ? host::call(kBroadcastStrategy) : host::makeEmptyDouble();
  const Value numOutputs = host::makeDouble(static_cast<double>(spec->numOutputs));
  call.out(
      0, host::call(kExecutionTask, {call.in(1), factory.get(), strategy.get(), numOutputs.get()}));
}

host::MethodDefinition taskMethod(FunctionSlots slots, DescribeOperation describe) {
  return method(
      "createExecutionTasks",
      [slots, describe](const Call& call) { createTasks(call, slots, describe); }, 3, 3);
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
  for (const OperationClass& row : operationClasses()) {
    const auto takes = [&row](std::string_view input) {
      return std::ranges::find(row.inputs, input) != row.inputs.end();
    };
    host::ClassDefinition definition = definitionOf(row);
    definition.methods.push_back(
        taskMethod({takes("FunctionHandle"), takes("ReduceHandle")}, row.describe));
    define(session, std::move(definition));
  }
  const FunctionSlots oneFunction{.function = true};
  complete(session, kElementwiseOperation,
           {taskMethod(oneFunction, describeElementwise),
            method("directEvaluateImpl", directEvaluate, 1, -1),
            method("getCheckedFunctionHandle", getCheckedFunctionHandle, 1, 1)});
  complete(session, kSlicewiseOperation,
           {taskMethod(oneFunction, describeSlicewise),
            method("getCheckedFunctionHandle", getCheckedFunctionHandle, 1, 1)});
  session.addLoadValidator(validateOperations);
  define(session, {.name = kCacheEntryKey,
                   .properties = {readOnly("Id"), readOnly("OldId")},
                   .constructor = constructor(constructKey, 1, 1),
                   .methods = {method("setOldKey", setOldKey, 2, 2)}});
}

}  // namespace kv::runtime
