// What an operation object of the host means is read here, once, when its closure becomes a task.
// After that the plan and the engine know operators only. The describing functions refuse what
// can't run, since the user's line is still known then; what a constructor can refuse, the check of
// the class refuses there.

#include "classes/describeOperations.h"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "classes/DatastoreValue.h"
#include "classes/operationArity.h"
#include "column/elementTypes.h"
#include "column/pieces.h"
#include "driver/builtInFunctions.h"
#include "driver/partitionSource.h"
#include "kv/errors/shownText.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// The function_handle of an operation's function.
Value describeFunction(const kxArray* operation, OpSpec& spec) {
  const Value function = host::getProperty(operation, "FunctionHandle");
  Value handle = host::getProperty(function.get(), "Handle");
  spec.isTrusted = host::isTrusted(function.get()) && host::isTrusted(handle.get());
  spec.label = functionLabel(handle.get());
  spec.functions = {functionName(handle.get())};
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

/// A function that makes rows of its own.
void describeNewRows(const kxArray* operation, OpSpec& spec, OperatorPtr op) {
  describeFunction(operation, spec);
  spec.callsUser = true;
  spec.op = std::move(op);
  spec.wholeRun = WholeRun::RunFlow;
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

bool isRowOfText(const kxArray* value) {
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
  if (isRowOfText(number.get())) {
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

std::int64_t headRows(const kxArray* rows) {
  return rowCount(kxGetScalar(rows), 0, "KALVEX:array:HeadRows");
}

/// The target of an operation that writes, which a file may have been made to hold anything in.
WriteTarget targetIn(const kxArray* path, const kxArray* format, const kxArray* overwrites,
                     const kxArray* names, const kxArray* partitionBy, std::size_t numInputs) {
  WriteTarget target =
      targetOf(host::toText(path), host::toText(format), host::toLogical(overwrites));
  setColumns(target, host::toTexts(names), host::toTexts(partitionBy));
  const std::size_t expected = std::max<std::size_t>(target.names.size(), 1);
  requireArity(kWriteOperation, {expected, expected}, numInputs, 1);
  return target;
}

}  // namespace

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

void describeChunkwise(const kxArray* operation, OpSpec& spec) {
  describeNewRows(operation, spec, makeChunkwise(0));
}

void describePartitionwise(const kxArray* operation, OpSpec& spec) {
  describeNewRows(operation, spec, makePartitionwise());
}

void describeGeneralPartitionwise(const kxArray* operation, OpSpec& spec) {
  describeNewRows(operation, spec, makeGeneralPartitionwise());
}

void checkFixedChunks(const Call& call) { fixedChunkRows(call.in(2)); }

void describeFixedChunkwise(const kxArray* operation, OpSpec& spec) {
  const std::int64_t rows = fixedChunkRows(host::getProperty(operation, "NumSlices").get());
  describeNewRows(operation, spec, makeChunkwise(rows));
  spec.label += fmt::format(", {} row{} at a time", rows, rows == 1 ? "" : "s");
}

/// The function that reduces what the operation's first one returned; it must be trusted, too.
Value describeReduce(const kxArray* operation, OpSpec& spec) {
  const Value reduce = host::getProperty(operation, "ReduceHandle");
  Value handle = host::getProperty(reduce.get(), "Handle");
  spec.isTrusted = spec.isTrusted && host::isTrusted(reduce.get()) && host::isTrusted(handle.get());
  spec.functions.push_back(functionName(handle.get()));
  return handle;
}

/// A reduction is built in if both of its functions are the same one of the runtime's, of one input
/// and one output. Any other calls both functions as they are.
void describeAggregate(const kxArray* operation, OpSpec& spec) {
  const Value handle = describeFunction(operation, spec);
  const Value reduceHandle = describeReduce(operation, spec);
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
  const Value reduceHandle = describeReduce(operation, spec);
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

void checkWrite(const Call& call) {
  targetIn(call.in(1), call.in(2), call.in(3), call.in(4), call.in(5),
           host::toCount(call.in(6), kMaxCount));
}

void describeWrite(const kxArray* operation, OpSpec& spec) {
  const auto property = [&](kcos::NameRef name) { return host::getProperty(operation, name); };
  WriteTarget target =
      targetIn(property("Path").get(), property("Format").get(), property("IsOverwriting").get(),
               property("Names").get(), property("PartitionBy").get(), spec.numInputs);
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

}  // namespace kv::runtime
