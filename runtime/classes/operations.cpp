#include "classes/operations.h"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <vector>

#include "classes/DatastoreValue.h"
#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

using host::Call;
using host::Value;

/// More inputs or outputs than any operation has.
constexpr std::size_t kMaxCount = 1 << 20;

/// One row of the table of operation classes.
struct OperationClass {
  const char* name;
  std::vector<const char*> properties;
  int numInputs;  ///< of the constructor
  /// Runs the constructor of Operation and fills the properties.
  void (*construct)(const Call& call);
  /// Fills what the class decides: kind, label and what belongs to the kind.
  void (*describe)(const kxArray* operation, OpSpec& spec);
};

void constructOperation(const kxArray* operation, const kxArray* numInputs,
                        const kxArray* numOutputs) {
  host::constructSuperclass(operation, kOperation, {numInputs, numOutputs});
}

/// (datastore, numOutputs)
void constructRead(const Call& call) {
  const Value none = host::makeDouble(0);
  constructOperation(call.in(0), none.get(), call.in(2));
  host::setSlot(call.in(0), "Datastore", matrix::sharedCopy(call.in(1)));
}

void describeRead(const kxArray* operation, OpSpec& spec) {
  const Value datastore = host::getProperty(operation, "Datastore");
  spec.kind = OpKind::Read;
  spec.source = datastoreOf(datastore.get());
  spec.label = "read " + spec.source->displayName();
}

/// (number of data inputs): the selection comes in front of them.
void constructFilter(const Call& call) {
  const std::size_t filtered = host::toCount(call.in(1), kMaxCount);
  if (filtered == 0) {
    host::raise("KALVEX:NotEnoughInputs");
  }
  const Value numInputs = host::makeDouble(static_cast<double>(filtered + 1));
  constructOperation(call.in(0), numInputs.get(), call.in(1));
}

void describeFilter(const kxArray* /*operation*/, OpSpec& spec) {
  spec.kind = OpKind::Filter;
  spec.label = "filter";
}

/// (numInputs, numOutputs, content, row subscript, variable names)
void constructVariable(const Call& call) {
  constructOperation(call.in(0), call.in(1), call.in(2));
  const kxArray* rows = call.in(4);
  if (kxGetClassID(rows) != kxCHAR_CLASS || kxGetChars(rows) != u":") {
    host::raise("KALVEX:array:RowSubscript", {kxGetClassName(rows)});
  }
  const std::vector<std::string> names = host::toTexts(call.in(5));
  const bool content = host::toLogical(call.in(3));
  if (content && names.size() != 1) {
    host::raise("KALVEX:array:OneVariable", {fmt::format("{}", names.size())});
  }
  host::setSlot(call.in(0), "Content", host::makeLogical(content));
  host::setSlot(call.in(0), "Variables", host::makeStringColumn(names));
}

void describeVariable(const kxArray* operation, OpSpec& spec) {
  spec.kind = OpKind::Variable;
  spec.variables = host::toTexts(host::getProperty(operation, "Variables").get());
  spec.content = host::toLogical(host::getProperty(operation, "Content").get());
  spec.label = fmt::format("column {}", fmt::join(spec.variables, ", "));
}

/// (options, function, numInputs, numOutputs)
void constructWithFunction(const Call& call) {
  constructOperation(call.in(0), call.in(3), call.in(4));
  host::setSlot(call.in(0), "Options", matrix::sharedCopy(call.in(1)));
  host::setSlot(call.in(0), "FunctionHandle", matrix::sharedCopy(call.in(2)));
}

/// (options, function of a chunk, function of its results, numInputs, numOutputs)
void constructAggregate(const Call& call) {
  constructOperation(call.in(0), call.in(4), call.in(5));
  host::setSlot(call.in(0), "Options", matrix::sharedCopy(call.in(1)));
  host::setSlot(call.in(0), "FunctionHandle", matrix::sharedCopy(call.in(2)));
  host::setSlot(call.in(0), "ReduceHandle", matrix::sharedCopy(call.in(3)));
}

Value handleOf(const kxArray* operation) {
  return host::getProperty(host::getProperty(operation, "FunctionHandle").get(), "Handle");
}

void describeFunction(const kxArray* operation, OpSpec& spec, OpKind kind) {
  const Value handle = handleOf(operation);
  spec.kind = kind;
  spec.function = builtInFunction(handle.get());
  spec.label = functionLabel(handle.get());
}

void describeElementwise(const kxArray* operation, OpSpec& spec) {
  describeFunction(operation, spec, OpKind::Elementwise);
  spec.function.aggregate = nullptr;
}

void describeAggregate(const kxArray* operation, OpSpec& spec) {
  describeFunction(operation, spec, OpKind::Aggregate);
  spec.function.element = nullptr;
}

void describeClient(const kxArray* operation, OpSpec& spec) {
  describeFunction(operation, spec, OpKind::Client);
  spec.function = {};
}

/// The operations of the runtime. ElementwiseOperation is native and only completed.
const std::array<OperationClass, 5>& operationClasses() {
  static const std::array<OperationClass, 5> classes{{
      {"kalvex.bigdata.internal.lazyeval.ReadOperation",
       {"Datastore"},
       2,
       constructRead,
       describeRead},
      {"kalvex.bigdata.internal.lazyeval.FilterOperation", {}, 1, constructFilter, describeFilter},
      {"kalvex.bigdata.internal.lazyeval.SubsrefTabularVarOperation",
       {"Content", "Variables"},
       5,
       constructVariable,
       describeVariable},
      {"kalvex.bigdata.internal.lazyeval.AggregateOperation",
       {"FunctionHandle", "ReduceHandle"},
       5,
       constructAggregate,
       describeAggregate},
      {"kalvex.bigdata.internal.lazyeval.NonPartitionedOperation",
       {"FunctionHandle"},
       4,
       constructWithFunction,
       describeClient},
  }};
  return classes;
}

std::size_t countOf(const kxArray* operation, kcos::NameRef property) {
  return static_cast<std::size_t>(kxGetScalar(host::getProperty(operation, property).get()));
}

Value propertyIfAny(const kxArray* operation, const std::vector<const char*>& properties,
                    std::string_view name) {
  const bool has = std::find(properties.begin(), properties.end(), name) != properties.end();
  return has ? host::getProperty(operation, kcos::NameRef::of(name)) : nullptr;
}

/// createExecutionTasks(operation, dependencies, isInputBroadcast)
void createTasks(const Call& call, const std::vector<const char*>& properties,
                 void (*describe)(const kxArray*, OpSpec&)) {
  const kxArray* operation = call.in(0);
  auto spec = std::make_shared<OpSpec>();
  spec->numInputs = countOf(operation, "NumInputs");
  spec->numOutputs = countOf(operation, "NumOutputs");
  const Value stack = host::getProperty(operation, "Stack");
  spec->origin = originOf(stack.get());
  describe(operation, *spec);
  const Value function = propertyIfAny(operation, properties, "FunctionHandle");
  const Value reduction = propertyIfAny(operation, properties, "ReduceHandle");
  call.out(0, makeExecutionTask({spec, function.get(), reduction.get(), stack.get()}, call.in(1),
                                call.in(2)));
}

/// directEvaluateImpl(operation, inputs...): the function on whole values.
void directEvaluate(const Call& call) {
  const Value function = host::getProperty(call.in(0), "FunctionHandle");
  std::vector<const kxArray*> inputs(call.prhs, call.prhs + call.nrhs);
  inputs[0] = function.get();
  std::vector<Value> outputs = host::callMany("feval", call.nlhs, inputs);
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    call.out(static_cast<int>(i), std::move(outputs[i]));
  }
}

bool endsPass(OpKind kind) { return kind == OpKind::Aggregate || kind == OpKind::Client; }

bool allTrue(const kxArray* logicals) {
  const bool* flags = kxGetLogicals(logicals);
  const std::size_t count = kxGetNumberOfElements(logicals);
  return count > 0 && std::all_of(flags, flags + count, [](bool flag) { return flag; });
}

}  // namespace

Value makeExecutionTask(const TaskParts& parts, const kxArray* dependencies,
                        const kxArray* isInputBroadcast) {
  const Value factory = host::call(kSpecFactory, {parts.function, parts.reduction, parts.stack});
  host::setNativeValue(factory.get(), std::make_unique<OpSpecValue>(parts.spec));
  const bool isBroadcast = endsPass(parts.spec->kind) || allTrue(isInputBroadcast);
  const Value strategy = isBroadcast ? host::call(kBroadcastStrategy) : host::makeEmptyDouble();
  const Value numOutputs = host::makeDouble(static_cast<double>(parts.spec->numOutputs));
  return host::call(kExecutionTask,
                    {dependencies, factory.get(), strategy.get(), numOutputs.get()});
}

void defineOperations(host::Session& session) {
  for (const OperationClass& row : operationClasses()) {
    host::ClassDefinition definition{.name = row.name, .superclasses = {kOperation}};
    for (const char* property : row.properties) {
      definition.properties.push_back(readOnly(property));
    }
    definition.constructor = constructor(row.construct, row.numInputs + 1, row.numInputs + 1);
    definition.methods.push_back(method(
        "createExecutionTasks",
        [&row](const Call& call) { createTasks(call, row.properties, row.describe); }, 3, 3));
    define(session, std::move(definition));
  }
  static const std::vector<const char*> elementwiseProperties{"FunctionHandle"};
  complete(
      session, kElementwiseOperation,
      {method(
           "createExecutionTasks",
           [](const Call& call) { createTasks(call, elementwiseProperties, describeElementwise); },
           3, 3),
       method("directEvaluateImpl", directEvaluate, 1, -1),
       method(
           "getCheckedFunctionHandle", [](const Call& call) { call.out(0, handleOf(call.in(0))); },
           1, 1)});
}

}  // namespace kv::runtime
