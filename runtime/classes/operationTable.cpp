#include "classes/operationTable.h"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "classes/DatastoreValue.h"
#include "classes/definitionHelpers.h"
#include "column/elementTypes.h"
#include "column/pieces.h"
#include "driver/builtInFunctions.h"
#include "driver/partitionSource.h"
#include "kv/errors/shownText.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

// What an operation object of the host means is read here, once, when its closure becomes a task.
// After that the plan and the engine know operators only, so a new operation is a row of the table
// at the end with a function that describes it. The describing functions refuse what can't run,
// since the user's line is still known then.

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// More inputs or outputs than any operation has.
constexpr std::size_t kMaxCount = 1 << 20;

void describeRead(const kxArray* operation, OpSpec& spec) {
  const Value datastore = host::getProperty(operation, "Datastore");
  const Value strategy = host::getProperty(operation, "PartitionStrategy");
  const std::shared_ptr<const Datastore> source =
      partitionSource(datastoreOf(datastore.get()), strategy.get());
  spec.op = makeRead(source);
  spec.isTrusted = host::isTrusted(datastore.get());
  spec.label = "read " + source->displayName();
}

void describeFilter(const kxArray* /*operation*/, OpSpec& spec) {
  spec.op = makeFilter();
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = "filter";
}

void checkVariable(const Call& call) {
  const kxArray* rows = call.in(4);
  if (kxGetClassID(rows) != kxCHAR_CLASS || kxGetChars(rows) != u":") {
    host::raise("KALVEX:array:RowSubscript", {kxGetClassName(rows)});
  }
  const std::size_t names = host::toTexts(call.in(5)).size();
  if (host::toLogical(call.in(3)) && names != 1) {
    host::raise("KALVEX:array:OneVariable", {fmt::format("{}", names)});
  }
}

void describeVariable(const kxArray* operation, OpSpec& spec) {
  const std::vector<std::string> names =
      host::toTexts(host::getProperty(operation, "Variables").get());
  spec.op = makeVariable(names, host::toLogical(host::getProperty(operation, "Content").get()));
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = fmt::format("column {}", fmt::join(names, ", "));
}

/// The function_handle of an operation's function.
Value describeFunction(const kxArray* operation, OpSpec& spec) {
  const Value function = host::getProperty(operation, "FunctionHandle");
  Value handle = host::getProperty(function.get(), "Handle");
  spec.isTrusted = host::isTrusted(function.get()) && host::isTrusted(handle.get());
  spec.label = functionLabel(handle.get());
  spec.passesTagged = builtInFunction(handle.get()) == BuiltInFunction{} && passesTagged(operation);
  spec.isFree = isFreeFunction(handle.get()) && !spec.passesTagged;  // which needs the session
  return handle;
}

/// A function of matching rows. One that is built in has one output; the call of the function
/// refuses more.
void describeRows(const kxArray* operation, OpSpec& spec, bool givesLogical, bool spreads) {
  const Value handle = describeFunction(operation, spec);
  const ElementFunction* function = builtInFunction(handle.get()).element;
  spec.callsUser = function == nullptr || spec.numOutputs != 1;
  spec.op = spec.callsUser ? makeCallable({.givesLogical = givesLogical, .spreads = spreads})
                           : makeElementwise(*function, givesLogical, spreads);
  spec.wholeRun = givesLogical ? WholeRun::CallOnRowsForLogical : WholeRun::CallOnRows;
}

void describeLogicalElementwise(const kxArray* operation, OpSpec& spec) {
  describeRows(operation, spec, true, true);
}

/// A function that checks frames, whatever it is.
void describeAssertion(const kxArray* operation, OpSpec& spec) {
  describeFunction(operation, spec);
  spec.callsUser = true;
  spec.op = makeCallable({.seesFrames = true});
  spec.wholeRun = WholeRun::CallOnRows;
}

/// A function that makes rows of its own.
void describeNewRows(const kxArray* operation, OpSpec& spec, OperatorPtr op) {
  describeFunction(operation, spec);
  spec.callsUser = true;
  spec.op = std::move(op);
  spec.wholeRun = WholeRun::RunFlow;
}

void describeChunkwise(const kxArray* operation, OpSpec& spec) {
  describeNewRows(operation, spec, makeChunkwise(0));
}

void describePartitionwise(const kxArray* operation, OpSpec& spec) {
  describeNewRows(operation, spec, makePartitionwise());
}

void describeGeneralPartitionwise(const kxArray* operation, OpSpec& spec) {
  describeNewRows(operation, spec, makeGeneralPartitionwise());
}

/// A number of rows. Errors: the id with any other number than a whole one from `least` on.
std::int64_t rowCount(double rows, double least, const char* id) {
  if (!(rows >= least && rows <= kMaxExactWhole && std::trunc(rows) == rows)) {
    host::raise(id, {fmt::format("{}", rows)});
  }
  return static_cast<std::int64_t>(rows);
}

std::int64_t fixedChunkRows(const kxArray* rows) {
  return rowCount(kxGetScalar(rows), 1, "KALVEX:array:ChunkRows");
}

void checkFixedChunks(const Call& call) { fixedChunkRows(call.in(2)); }

void describeFixedChunkwise(const kxArray* operation, OpSpec& spec) {
  const std::int64_t rows = fixedChunkRows(host::getProperty(operation, "NumSlices").get());
  describeNewRows(operation, spec, makeChunkwise(rows));
  spec.label += fmt::format(", {} row{} at a time", rows, rows == 1 ? "" : "s");
}

/// A reduction is built in if both of its functions are the same one of the runtime's, of one input
/// and one output. Any other calls both functions as they are.
void describeAggregate(const kxArray* operation, OpSpec& spec) {
  const Value handle = describeFunction(operation, spec);
  const Value reduce = host::getProperty(operation, "ReduceHandle");
  const Value reduceHandle = host::getProperty(reduce.get(), "Handle");
  spec.isTrusted =
      spec.isTrusted && host::isTrusted(reduce.get()) && host::isTrusted(reduceHandle.get());
  const BuiltInFunction function = builtInFunction(handle.get());
  spec.callsUser = function.aggregate == nullptr ||
                   function != builtInFunction(reduceHandle.get()) || spec.numInputs != 1 ||
                   spec.numOutputs != 1;
  spec.op = spec.callsUser ? makeReduction() : makeAggregate(*function.aggregate, function.form);
  spec.wholeRun = spec.callsUser ? WholeRun::CallAndReduce : WholeRun::CallOnRows;
}

/// A step by key is built in if both of its functions are the same one of the runtime's, of one
/// array and with one result, or none of which it needs.
void describeByKey(const kxArray* operation, OpSpec& spec) {
  const Value handle = describeFunction(operation, spec);
  const Value reduce = host::getProperty(operation, "ReduceHandle");
  const Value reduceHandle = host::getProperty(reduce.get(), "Handle");
  spec.isTrusted =
      spec.isTrusted && host::isTrusted(reduce.get()) && host::isTrusted(reduceHandle.get());
  const BuiltInFunction function = builtInFunction(handle.get());
  const bool isBuiltIn = function.group != nullptr &&
                         function == builtInFunction(reduceHandle.get()) && spec.numOutputs <= 2 &&
                         (spec.numInputs == 2 || function.group->countsRows);
  spec.callsUser = !isBuiltIn;
  spec.op =
      isBuiltIn ? makeGroups({{function.group, function.form.missing, 0}}) : makeKeyedReduction();
  spec.wholeRun = isBuiltIn ? WholeRun::RunOperator : WholeRun::CallByKey;
  spec.label += " by key";
}

/// Where the metadata doesn't fix the number of partitions, it is 1.
void describeRepartition(const kxArray* operation, OpSpec& spec) {
  const Value strategy = host::getProperty(operation, "OutputPartitionStrategy");
  const Value one = host::makeDouble(1);
  const Value most = host::makeDouble(static_cast<double>(kMaxMadePartitions));
  const Value resolved = host::call(
      "resolve", {strategy.get(), one.get(), most.get(), host::makeLogical(false).get()});
  const Value partitions = host::getProperty(resolved.get(), "MinNumPartitions");
  spec.op = makeRepartition(static_cast<std::int64_t>(
      host::toCount(partitions.get(), static_cast<std::size_t>(kMaxMadePartitions))));
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = "repartition";
}

void describeClient(const kxArray* operation, OpSpec& spec) {
  describeFunction(operation, spec);
  spec.callsUser = true;
}

void describeChoice(const kxArray* /*operation*/, OpSpec& spec) {
  spec.isChoice = true;
  spec.op = makeSpread();
  spec.wholeRun = WholeRun::PassOn;
  spec.label = "choose by a condition";
}

bool isText(const kxArray* value) {
  return kxGetClassID(value) == kxCHAR_CLASS
             ? kxGetM(value) == 1
             : Torvane::String::isString(value) && kxIsScalar(value);
}

/// The number in parameter `index` of resizechunks; infinity for an upper bound that is none.
///
/// Errors: "KALVEX:array:ResizeParameter" with the name, class or place of anything else;
///         "KALVEX:array:ChunkRows" with a number that can't be meant.
double chunkRowsIn(const kxArray* parameter, std::size_t index) {
  const Value number = kxIsA(parameter, kLocalArray) ? host::getProperty(parameter, "Value")
                                                     : matrix::sharedCopy(parameter);
  if (isText(number.get())) {
    host::raise("KALVEX:array:ResizeParameter",
                {fmt::format("'{}'", errors::shownText(host::toText(number.get())))});
  }
  if (index > 1 || !kxIsNumeric(number.get()) || !kxIsScalar(number.get())) {
    host::raise("KALVEX:array:ResizeParameter",
                {index > 1 ? "a third one" : fmt::format("a {}", kxGetClassName(number.get()))});
  }
  const double rows = kxGetScalar(number.get());
  const bool isNoBound = index == 1 && rows == std::numeric_limits<double>::infinity();
  return isNoBound ? rows : static_cast<double>(rowCount(rows, 1, "KALVEX:array:ChunkRows"));
}

/// The rows of a chunk: the first parameter, or the second if that is less.
/// Errors: those of `chunkRowsIn`.
std::int64_t chunkRows(const std::vector<const kxArray*>& parameters) {
  auto rows = static_cast<double>(kPieceRows);
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const double number = chunkRowsIn(parameters[i], i);
    rows = i == 0 ? number : std::min(rows, number);
  }
  return static_cast<std::int64_t>(rows);
}

void checkResize(const Call& call) { chunkRows({call.prhs + 2, call.prhs + call.nrhs}); }

void describeResize(const kxArray* operation, OpSpec& spec) {
  const Value cell = host::getProperty(operation, "Parameters");
  std::vector<const kxArray*> parameters;
  for (std::size_t i = 0; i < kxGetNumberOfElements(cell.get()); ++i) {
    parameters.push_back(kxGetCell(cell.get(), i));
  }
  const std::int64_t rows = chunkRows(parameters);
  spec.op = makeFrame(rows);
  spec.wholeRun = WholeRun::PassOn;
  spec.label = fmt::format("resize chunks to {} row{}", rows, rows == 1 ? "" : "s");
}

void makeCacheKey(const Call& call) {
  host::setSlot(call.in(0), "CacheEntryKey", host::call(kCacheEntryKey));
}

void describeCache(const kxArray* /*operation*/, OpSpec& spec) {
  spec.op = makePass();
  spec.wholeRun = WholeRun::PassOn;
  spec.label = "keep for reuse";
}

std::int64_t headRows(const kxArray* rows) {
  return rowCount(kxGetScalar(rows), 0, "KALVEX:array:HeadRows");
}

void checkHead(const Call& call) { headRows(call.in(2)); }

void describeHead(const kxArray* operation, OpSpec& spec) {
  const std::int64_t rows = headRows(host::getProperty(operation, "NumRows").get());
  spec.op = makeHead(rows, spec.numInputs);
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = fmt::format("first {} row{}", rows, rows == 1 ? "" : "s");
}

void describeForeach(const kxArray* operation, OpSpec& spec) {
  describeFunction(operation, spec);
  spec.callsUser = true;
  spec.isFree = false;  // it is called in the client
  spec.op =
      makeDeliver(spec.numInputs, host::toLogical(host::getProperty(operation, "IsOrdered").get()));
  spec.wholeRun = WholeRun::HandOver;
}

[[noreturn]] void raiseArity(std::string_view className, const std::string& expected,
                             std::size_t count) {
  host::raise("KALVEX:array:OperationArity",
              {std::string(className), expected, std::to_string(count)});
}

std::string counted(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

/// The target of an operation that writes, which a file may have been made to hold anything in.
WriteTarget targetIn(const kxArray* path, const kxArray* format, const kxArray* overwrites,
                     const kxArray* names, std::size_t numInputs) {
  WriteTarget target =
      targetOf(host::toText(path), host::toText(format), host::toLogical(overwrites));
  target.names = host::toTexts(names);
  const std::size_t expected = std::max<std::size_t>(target.names.size(), 1);
  if (numInputs != expected) {
    raiseArity(kWriteOperation, counted(expected, "input"), numInputs);
  }
  return target;
}

void checkWrite(const Call& call) {
  targetIn(call.in(1), call.in(2), call.in(3), call.in(4), host::toCount(call.in(5), kMaxCount));
}

void describeWrite(const kxArray* operation, OpSpec& spec) {
  const auto property = [&](kcos::NameRef name) { return host::getProperty(operation, name); };
  WriteTarget target =
      targetIn(property("Path").get(), property("Format").get(), property("IsOverwriting").get(),
               property("Names").get(), spec.numInputs);
  spec.label = "write " + target.path;
  spec.op = makeWrite(std::move(target));
  spec.wholeRun = WholeRun::RunOperator;
}

/// The operation of an array that another release saved.
void describeInvalid(const kxArray* operation, OpSpec& spec) {
  spec.isRunnable = false;
  spec.savedRelease = host::toText(host::getProperty(operation, "SavedVersion").get());
  spec.label = fmt::format("an array that release {} saved", spec.savedRelease);
}

constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
constexpr OperationArity kSource{0, 0, OutputRule::One};
constexpr OperationArity kOneToOne{1, 1, OutputRule::One};
constexpr OperationArity kChoice{3, 3, OutputRule::One};
constexpr OperationArity kSelection{2, kAny, OutputRule::PerKept};
constexpr OperationArity kEachArray{0, kAny, OutputRule::PerInput};
constexpr OperationArity kFunction{};
constexpr OperationArity kHandedOver{1, kAny, OutputRule::One};
constexpr OperationArity kRowFunction{1, kAny, OutputRule::Any};

std::size_t outputsFor(OutputRule rule, std::size_t numInputs, std::size_t numOutputs) {
  switch (rule) {
    case OutputRule::One:
      return 1;
    case OutputRule::PerInput:
      return numInputs;
    case OutputRule::PerKept:
      return numInputs - 1;
    default:
      return numOutputs;
  }
}

void checkArity(const OperationClass& row, const kxArray* operation) {
  requireArity(row.name, row.arity, countOf(operation, "NumInputs"),
               countOf(operation, "NumOutputs"));
}

/// What the constructor of Operation is given.
struct Counts {
  Value numInputs;
  Value numOutputs;
  Value supportsPreview = host::makeLogical(false);
  Value dependsOnOnlyHead = host::makeLogical(false);

  /// Takes an input by its name; false for one that isn't a count or flag.
  bool take(std::string_view name, const kxArray* input) {
    if (name == "NumInputs") {
      numInputs = matrix::sharedCopy(input);
    } else if (name == "NumOutputs") {
      numOutputs = matrix::sharedCopy(input);
    } else if (name == "NumKept") {
      takeKept(host::toCount(input, kMaxCount));
    } else if (name == "NumArrays") {
      numInputs = matrix::sharedCopy(input);
      numOutputs = matrix::sharedCopy(input);
    } else if (name == "DependsOnOnlyHead") {
      dependsOnOnlyHead = host::makeLogical(input != nullptr && host::toLogical(input));
    } else {
      return false;
    }
    return true;
  }

 private:
  void takeKept(std::size_t kept) {
    if (kept == 0) {
      host::raise("KALVEX:NotEnoughInputs");
    }
    numInputs = host::makeDouble(static_cast<double>(kept + 1));
    numOutputs = host::makeDouble(static_cast<double>(kept));
  }
};

Value cellOfInputs(const Call& call, int first) {
  std::vector<Value> values;
  for (int i = first; i < call.nrhs; ++i) {
    values.push_back(matrix::sharedCopy(call.in(i)));
  }
  return host::makeCell(std::move(values));
}

void construct(const OperationClass& row, const Call& call) {
  Counts counts{host::makeDouble(static_cast<double>(row.arity.minInputs)), host::makeDouble(1),
                host::makeLogical(row.supportsPreview)};
  std::vector<std::pair<std::string_view, Value>> properties;
  for (std::size_t i = 0; i < row.inputs.size(); ++i) {
    const int position = static_cast<int>(i) + 1;  // after the object
    const std::string_view name = row.inputs[i];
    if (name == "Parameters") {
      properties.emplace_back(name, cellOfInputs(call, position));
    } else if (name == "PartitionStrategy" && call.nrhs <= position) {
      properties.emplace_back(name, host::makeEmptyDouble());
    } else if (!counts.take(name, call.in(position))) {
      properties.emplace_back(name, matrix::sharedCopy(call.in(position)));
    }
  }
  host::constructSuperclass(call.in(0), kOperation,
                            {counts.numInputs.get(), counts.numOutputs.get(),
                             counts.supportsPreview.get(), counts.dependsOnOnlyHead.get()});
  checkArity(row, call.in(0));
  if (row.check != nullptr) {
    row.check(call);
  }
  for (auto& [name, value] : properties) {
    host::setSlot(call.in(0), kcos::NameRef::of(name), std::move(value));
  }
}

bool isProperty(std::string_view input) {
  static constexpr std::string_view kOthers[] = {"NumInputs", "NumOutputs",        "NumKept",
                                                 "NumArrays", "DependsOnOnlyHead", "Options"};
  return std::ranges::find(kOthers, input) == std::end(kOthers);
}

host::MethodDefinition constructorOf(const OperationClass& row) {
  const int count = static_cast<int>(row.inputs.size()) + 1;  // the object too
  const std::string_view last = row.inputs.empty() ? std::string_view() : row.inputs.back();
  const bool isOpen = last == "Parameters";
  const bool isOptional = last == "DependsOnOnlyHead" || last == "PartitionStrategy";
  return constructor([&row](const Call& call) { construct(row, call); },
                     isOpen || isOptional ? count - 1 : count, isOpen ? -1 : count);
}

}  // namespace

bool passesTagged(const kxArray* operation) {
  const Value options = host::getSlot(operation, "Options");
  return kcos::omIsKCOS(options.get()) && !kxIsEmpty(options.get()) &&
         host::toLogical(host::getProperty(options.get(), "PassTaggedInputs").get());
}

void describeElementwise(const kxArray* operation, OpSpec& spec) {
  describeRows(operation, spec, false, true);
}

void describeSlicewise(const kxArray* operation, OpSpec& spec) {
  describeRows(operation, spec, false,
               host::toLogical(host::getProperty(operation, "AllowTallDimExpansion").get()));
}

std::size_t countOf(const kxArray* operation, kcos::NameRef property) {
  return static_cast<std::size_t>(kxGetScalar(host::getProperty(operation, property).get()));
}

void requireArity(std::string_view className, const OperationArity& arity, std::size_t numInputs,
                  std::size_t numOutputs) {
  const auto [least, most, rule] = arity;
  if (numInputs < least || numInputs > most) {
    const std::string limit = least == most ? "" : numInputs < least ? "at least " : "at most ";
    raiseArity(className, limit + counted(numInputs < least ? least : most, "input"), numInputs);
  }
  if (const std::size_t outputs = outputsFor(rule, numInputs, numOutputs); outputs != numOutputs) {
    raiseArity(className, counted(outputs, "output"), numOutputs);
  }
}

std::span<const OperationClass> operationClasses() {
  // clang-format off
  static const std::vector<OperationClass> classes{
      {kReadOperation, {"Datastore", "NumOutputs", "PartitionStrategy"}, kSource, describeRead,
       nullptr, true},
      {"kalvex.bigdata.internal.lazyeval.FilterOperation",
       {"NumKept"}, kSelection, describeFilter, nullptr, true},
      {"kalvex.bigdata.internal.lazyeval.LogicalRowSubsrefOperation",
       {"NumKept"}, kSelection, describeFilter},
      {kVariableOperation,
       {"NumInputs", "NumOutputs", "Content", "Rows", "Variables"}, kOneToOne, describeVariable,
       checkVariable, true},
      {"kalvex.bigdata.internal.lazyeval.LogicalElementwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kFunction,
       describeLogicalElementwise, nullptr, true},
      {"kalvex.bigdata.internal.lazyeval.AggregateOperation",
       {"Options", "FunctionHandle", "ReduceHandle", "NumInputs", "NumOutputs"},
       kRowFunction, describeAggregate},
      {"kalvex.bigdata.internal.lazyeval.NonPartitionedOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kFunction, describeClient},
      {"kalvex.bigdata.internal.lazyeval.TernaryOperation",
       {}, kChoice, describeChoice, nullptr, true},
      {kCacheOperation,
       {}, kOneToOne, describeCache, makeCacheKey},
      {"kalvex.bigdata.internal.lazyeval.AggregateByKeyOperation",
       {"Options", "FunctionHandle", "ReduceHandle", "NumInputs", "NumOutputs"},
       kRowFunction, describeByKey},
      {"kalvex.bigdata.internal.lazyeval.ChunkwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kRowFunction, describeChunkwise},
      {"kalvex.bigdata.internal.lazyeval.FixedChunkwiseOperation",
       {"Options", "NumSlices", "FunctionHandle", "NumInputs", "NumOutputs"}, kRowFunction,
       describeFixedChunkwise, checkFixedChunks},
      {"kalvex.bigdata.internal.lazyeval.PartitionwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs", "DependsOnOnlyHead"},
       kRowFunction, describePartitionwise},
      {"kalvex.bigdata.internal.lazyeval.GeneralizedPartitionwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kRowFunction,
       describeGeneralPartitionwise},
      {"kalvex.bigdata.internal.lazyeval.RepartitionOperation",
       {"OutputPartitionStrategy", "NumKept"}, kSelection, describeRepartition},
      {"kalvex.bigdata.internal.lazyeval.ChunkResizeOperation",
       {"NumArrays", "Parameters"}, kEachArray, describeResize, checkResize},
      {"kalvex.bigdata.internal.lazyeval.SmallTallComparisonOperation",
       {"Options", "FunctionHandle", "Operand", "Flag", "NumInputs", "NumOutputs"},
       kFunction, describeElementwise},
      {"kalvex.bigdata.internal.lazyeval.AdaptorAssertionOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kFunction, describeAssertion},
      {kHeadOperation,
       {"NumArrays", "NumRows"}, kEachArray, describeHead, checkHead, true},
      {kForeachOperation,
       {"FunctionHandle", "IsOrdered", "NumInputs"}, kHandedOver, describeForeach},
      {kWriteOperation,
       {"Path", "Format", "IsOverwriting", "Names", "NumInputs"}, kHandedOver, describeWrite,
       checkWrite},
      {kInvalidOperation,
       {"SavedVersion"}, kSource, describeInvalid},
  };
  // clang-format on
  return classes;
}

host::ClassDefinition definitionOf(const OperationClass& row) {
  host::ClassDefinition definition{.name = row.name, .superclasses = {kOperation}};
  for (const std::string_view input : row.inputs) {
    if (isProperty(input)) {
      definition.properties.push_back(readOnly(std::string(input)));
    }
  }
  if (row.describe == describeCache) {
    definition.properties.push_back(readOnly("CacheEntryKey"));
  }
  definition.constructor = constructorOf(row);
  definition.savedForm = host::SavedForm{
      nullptr, [&row](const kxArray* operation, const kxArray*) { checkArity(row, operation); }};
  return definition;
}

}  // namespace kv::runtime
