#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <set>

#include "LazySession.h"
#include "ki/createManagedObject.h"
#include "kx/string.h"
#include "lazyeval/arrayPersistence.h"

namespace bigdata::lazyeval {

namespace {

/// An input of a call by name: a number, a text, or any value.
struct Input {
  Input(double number) : Input(kv::host::makeDouble(number)) {}
  template <std::size_t length>
  Input(const char (&text)[length]) : Input(kv::host::makeChars(text)) {}
  Input(const Value& given) : value(matrix::sharedCopy(given.get())) {}

  std::shared_ptr<const kxArray> value;
};

/// A call by name, or a look at ".Property", and the error it ends with: an id with its arguments,
/// or the text of an internal error. "@" stands for "kalvex.bigdata.internal.".
struct Road {
  std::string name;
  std::vector<Input> inputs;
  std::string error;
  int nlhs = 1;
};
using Roads = std::vector<Road>;

std::string unfolded(const std::string& text) {
  return std::regex_replace(text, std::regex("@"), "kalvex.bigdata.internal.");
}

/// Each id that ErrorIds.h declares.
std::set<std::string> declaredIds() {
  std::ifstream file(KV_ERROR_IDS);
  const std::string header(std::istreambuf_iterator<char>(file), {});
  const std::regex tag(
      R"rx(kCategory = "([^"]+)"|category = (?:kCategory|"([^"]+)"),\s+\*key = "([^"]+)")rx");
  std::set<std::string> ids;
  std::string shared;
  for (std::sregex_iterator found(header.begin(), header.end(), tag), end; found != end; ++found) {
    const std::smatch& match = *found;
    if (match[1].matched) {
      shared = match[1];
    } else {
      ids.insert((match[2].matched ? match[2].str() : shared) + ":" + match[3].str());
    }
  }
  return ids;
}

/// What goes wrong when it is asked from outside. A partition of Hadoop's metadata can't be: only
/// native code passes that.
class ErrorIds : public LazySession {
 protected:
  ErrorIds() {
    const kxArray* shown[] = {previewed.get(), yes.get(), yes.get()};
    session.call("setCachedPreviewData", 0, shown);
    session.deleteObject(deleted.get());
    stub("checkSameExecutor");
    stub("kalvex.io.datastore.internal.shim.isDatastore",
         [](const Call& c) { c.out(0, kv::host::makeLogical(false)); });
  }

  static Value flags(std::size_t columns) {
    const std::size_t dimensions[] = {1, columns};
    return matrix::from_kalvex(kxCreateNumericArray(dimensions, kxLOGICAL_CLASS));
  }
  Value withPartitioning(const Value& partitioning) {
    return call("createFromFutureBuiltin", ki::toArray(constant(1)), partitioning);
  }
  Value slicewise() {
    const kxArray* inputs[] = {plus_.get(), x.get()};
    const Value array = std::move(session.call("slicefun", 1, inputs).at(0));
    return get(get(get(get(array, "ValueFuture"), "Promise"), "Closure"), "Operation");
  }

  Roads ofStrategies();
  Roads ofArrays();
  Roads ofClosures();
  Roads ofNamesAndTexts();
  void take(const Road& road);
  /// What is warned of when an array comes back in another release; it has no road of its own.
  std::string warningOfReleases();

  const Value nothing = kv::host::makeEmptyDouble();
  const Value cell = kv::host::makeCell({});
  const Value yes = kv::host::makeLogical(true);
  const Value plus_ = plus();
  const Value x = lazyArray(future(closure({})));
  const Value previewed = lazyArray(future(closure({})));
  const Value complete = lazyArray(constant(1));
  const Value deleted = make("executor.ArbitraryPartitionStrategy");
};

Roads ErrorIds::ofStrategies() {
  const Value arbitrary = make("executor.ArbitraryPartitionStrategy");
  const Value broadcast = make("executor.BroadcastPartitionStrategy");
  const Value fixed = make("executor.FixedNumPartitionStrategy", kv::host::makeDouble(3));
  const std::string index = "PartitionIndex used for ", count = "NumPartitions used ";
  const std::string create = "createPartition", fix = "fixNumPartitions";
  const std::string incompatible = "KALVEX:bigdata:array:IncompatibleTallIndexing";
  return {
      Road(create, {arbitrary, 0, 5}, index + "this is 0 when it must be between 1 and 5"),
      Road(create, {arbitrary, 6, 5}, index + "this is 6 when it must be between 1 and 5"),
      Road(create, {fixed, 4, 9}, index + "this is 4 when it must be between 1 and 3"),
      Road(create, {fixed, 1, 4}, count + "for this FixedNumPartitions is 4 when it must be 3"),
      Road(create, {broadcast, 2, 2}, index + "broadcast partition is 2 when it must be 1."),
      Road(create, {broadcast, 1, 2}, count + "for broadcast partition is 2 when it must be 1."),
      Road(fix, {fixed, 4}, count + "to fix this FixedNumPartitionStrategy is 4 when it must be 3"),
      Road(fix, {broadcast, 2},
           count + "to fix broadcast partition strategy is 2 when it must be 1."),
      Road(fix, {arbitrary, 0},
           "FixedNumPartitionStrategy constructed with NumPartitions 0when this must be >= 0."),
      Road("createPartitionStrategyBuiltin", {yes}, "Invalid input for createPartitionStrategy"),
      Road("createPartitionStrategyBuiltin", {cell},
           "createPartitionStrategy expects a scalar input"),
      Road("throwIfIncompatible", {fixed, broadcast}, incompatible),
      Road("alignPartitionStrategyBuiltin", {fixed, arbitrary}, incompatible),
      Road("alignPartitionMetadataBuiltin",
           {make("PartitionMetadata", fixed), make("PartitionMetadata", arbitrary)}, incompatible),
      Road("elementfun", {plus_, withPartitioning(fixed), withPartitioning(nothing)}, incompatible),
      Road("alignPartitionStrategyBuiltin", {deleted}, "KALVEX:class:InvalidHandle"),
      Road("typedIsCompatible", {fixed, 1},
           "KALVEX:validateattributes:invalidType | Input | @executor.PartitionStrategy | double")};
}

Roads ErrorIds::ofArrays() {
  executor = kv::host::makeString("a second executor");
  const Value elsewhere = lazyArray(constant(1));
  return {
      Road("elementfun", {plus_, x, elsewhere}, "KALVEX:bigdata:array:IncompatibleTallExecutor"),
      Road("elementfun", {plus_, call("OtherArray"), x},
           "Cannot mix two different implementations of PartitionedArray: "
           "@lazyeval.LazyPartitionedArray, OtherArray"),
      Road("elementfun", {2, x}, "Function handle must be a function_handle or a @FunctionHandle."),
      Road("joinbykey", {x}, "Method PartitionedArray/joinbykey is currently not supported."),
      Road("repartition", {nothing, x}, "Expected a valid @PartitionMetadata object."),
      Road("createFromFutureBuiltin", {nothing, 2},
           "Expected a valid @lazyeval.ClosureFuture object."),
      Road("createFromConstantBuiltin", {complete}, "Constant input cannot be a partitioned array"),
      Road("getCachedPreviewData", {complete},
           "Requested cache preview data on an array that is already complete"),
      Road("setCachedPreviewData", {complete, 1, yes},
           "Setting cache preview data on an array that is already complete"),
      Road("setCachedPreviewData", {previewed, 1, yes},
           "Setting cache preview data on an array that already has it"),
      Road("@optimizer.ClosureGraph", {2},
           "ClosureGraph expects all inputs to be of type @lazyeval.LazyPartitionedArray")};
}

Roads ErrorIds::ofClosures() {
  const Value promise = ki::toArray(constant(1)->getPromise());
  const Value operation = ki::toArray(this->operation(1, 2));
  const Value uncountable =
      call("TestOperation", kv::host::makeDouble(2), kv::host::makeDouble(std::nan("")));
  const Value none = ki::toArray(std::vector<FuturePtr>());
  const std::string mismatch =
      "isPartitionIndependent must be scalar or be of size as number of outputs";
  return {
      Road("applyOperationBuiltin", {operation, 2},
           "Requested 3 outputs from an operation that generates at most 2", 3),
      Road("applyOperationBuiltin", {uncountable},
           "KALVEX:CountTooLarge | 9223372036854775808 | 1048576"),
      Road("applyOperationBuiltin", {2},
           "KALVEX:validateattributes:invalidType | Input | scalar @lazyeval.Operation | double"),
      Road("directEvaluate", {slicewise()},
           "@lazyeval.SlicewiseOperationdoes not support direct evaluation."),
      Road("@lazyeval.Closure", {none, operation, flags(3)}, mismatch),
      Road("@lazyeval.Closure", {none, operation, flags(0)}, mismatch),
      Road("@lazyeval.Closure", {none, operation, 1},
           "KALVEX:validateattributes:invalidType | Argument | row vector | 1x1 double"),
      Road("setValue", {promise, 1},
           "Attempted to complete a ClosurePromise that is already complete."),
      Road("setPartitionIndependent", {promise, 0},
           "Attempted to remove the partition independent flag on a ClosurePromise that is already "
           "complete.")};
}

Roads ErrorIds::ofNamesAndTexts() {
  const std::string options = "@PartitionedArrayOptions";
  const std::string builder = "@executor.CompositeDataProcessorBuilder";
  const std::string parser = "KALVEX:InputParser:";
  const std::string notText = "KALVEX:string:MustBeStringScalarOrCharacterVector";
  const Value leaf = call(unfolded(builder), kv::host::makeDouble(1));
  const auto strings = [](std::size_t rows) { return Torvane::String::createStringArray(rows, 1); };
  return {Road(options, {1, yes}, parser + "ParamMustBeChar"),
          Road(options, {"RequiresRandState", yes, "PassTaggedInputs"},
               parser + "ParamMissingValue | PassTaggedInputs"),
          Road(options, {"requiresrandstate", yes},
               parser + "UnmatchedParameter | requiresrandstate | "),
          Road(options, {"RequiresGlobalState", yes},
               parser + "UnmatchedParameter | RequiresGlobalState | "),
          Road(builder, {yes}, notText),
          Road(builder, {strings(1)}, "KALVEX:string:MissingNotSupported"),
          Road(builder, {-1},
               "KALVEX:validateattributes:invalidType | Input | scalar size_t | 1x1 double"),
          Road(".AllInputIds", {leaf}, "Could not find method " + builder + "/getAllInputIds")};
}

void ErrorIds::take(const Road& road) {
  std::vector<const kxArray*> inputs;
  for (const Input& input : road.inputs) inputs.push_back(input.value.get());
  if (road.name.starts_with('.')) {
    session.get(inputs.at(0), road.name.substr(1));
  } else {
    session.call(unfolded(road.name), road.nlhs, inputs);
  }
}

std::string ErrorIds::warningOfReleases() {
  int saves = 0;
  stub("version", [&](const Call& c) { c.out(0, kv::host::makeChars(saves++ > 0 ? "2" : "1")); });
  const Value record = makeArrayRecord(*ki::fromArray<LazyArrayPtr>(x.get()));
  EXPECT_THAT(errorOf([&] { loadArray(record.get()); }),
              ::testing::HasSubstr("createInvalidVersionArray"));
  return session.warnings().at(0).identifier;
}

TEST_F(ErrorIds, AreEachRaisedByACallFromOutside) {
  std::set<std::string> raised{warningOfReleases()};
  for (const Roads& roads : {ofStrategies(), ofArrays(), ofClosures(), ofNamesAndTexts()}) {
    for (const Road& road : roads) {
      const bool isText = !road.error.starts_with("KALVEX:");
      const std::string error = unfolded(isText ? internalError(road.error) : road.error);
      EXPECT_EQ(errorOf([&] { take(road); }), error) << road.name;
      raised.insert(error.substr(0, error.find(" | ")));
    }
  }
  EXPECT_EQ(raised, declaredIds()) << "an id without a road, or without a declaration";
}

}  // namespace

}  // namespace bigdata::lazyeval
