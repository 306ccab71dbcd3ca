#include "lazyeval/arrayMethods.h"

#include <map>
#include <string_view>

#include "FunctionHandle.h"
#include "LazySession.h"
#include "PartitionMetadata.h"
#include "PartitionedArrayOptions.h"
#include "ki/createManagedObject.h"
#include "lazyeval/ElementwiseOperation.h"
#include "lazyeval/leadingValues.h"

namespace bigdata::lazyeval {

namespace {

class ArrayMethodsTest : public LazySession {
 protected:
  std::vector<Value> method(std::string_view name, int nlhs,
                            const std::vector<const kxArray*>& inputs) {
    return session.call(name, nlhs, inputs);
  }
  const HostCall& constructed(std::string_view operation) {
    return lastCall("kalvex.bigdata.internal.lazyeval." + std::string(operation));
  }
  static double number(const Value& value) { return kv::host::toDouble(value.get()); }
  static ClosurePromise& promiseOf(const Value& array) {
    return ki::fromArray<LazyArrayPtr>(array.get())->promise();
  }
  std::string strategyOf(const Value& array) {
    const Value metadata = get(array, "PartitionMetadata");
    const std::string name = kxGetClassName(get(metadata, "Strategy").get());
    return name.substr(name.rfind('.') + 1);
  }

  const Value options = make("PartitionedArrayOptions");
  const Value function = plus();
  const Value two = kv::host::makeDouble(2);
  const Value x = lazyArray(future(closure({})));
};

TEST_F(ArrayMethodsTest, OptionsAreOptionalAndAPlainFunctionIsWrapped) {
  const Value handle =
      ki::toArray(ki::createManagedObject<FunctionHandle>(matrix::sharedCopy(function.get())));
  for (const auto& inputs :
       std::vector<std::vector<const kxArray*>>{{options.get(), function.get(), x.get(), two.get()},
                                                {function.get(), two.get(), x.get()},
                                                {handle.get(), x.get(), x.get()}}) {
    const Value array = std::move(method("elementfun", 1, inputs)[0]);
    const Value operation = ki::toArray(promiseOf(array).getClosure()->getOperation());
    EXPECT_EQ(getDouble(operation, "NumInputs"), 2);
    EXPECT_EQ(getDouble(operation, "NumOutputs"), 1);
    EXPECT_TRUE(
        kxIsSameValue(get(get(operation, "FunctionHandle"), "Handle").get(), function.get()));
  }
}

TEST_F(ArrayMethodsTest, AnElementwiseCallMakesAFixedNumberOfHostCalls) {
  calls.clear();
  method("elementfun", 1, {function.get(), x.get(), two.get()});
  EXPECT_EQ(takeCalls(), "keepAlive");
  const Value local = callWith("createFromConstantBuiltin", {two.get()});
  calls.clear();
  const Value sum = std::move(method("elementfun", 1, {function.get(), local.get(), two.get()})[0]);
  EXPECT_EQ(takeCalls(), "directEvaluateImpl keepAlive");
  EXPECT_EQ(number(get(get(sum, "ValueFuture"), "Value")), 100);
}

TEST_F(ArrayMethodsTest, FilterSlicesCountsWithoutTheSelection) {
  const std::vector<Value> kept = method("filterslices", 1, {x.get(), x.get()});
  ASSERT_EQ(constructed("FilterOperation").inputs.size(), 1u);
  EXPECT_EQ(number(constructed("FilterOperation").inputs[0]), 1);
  EXPECT_EQ(promiseOf(kept[0]).getClosure()->getInputFutures().size(), 2u);
}

TEST_F(ArrayMethodsTest, WithoutInputsFilterSlicesHandsOnAWrappedCountAndOthersRefuse) {
  kxArray* output = nullptr;
  EXPECT_EQ(errorOf([&] {
              filterslices({1, &output, 0, nullptr});
            }),
            "KALVEX:validateattributes:invalidType | Input | scalar size_t | 1x1 double");
  EXPECT_EQ(number(constructed("FilterOperation").inputs[0]), 18446744073709551616.0);
  RawInputs none{0, nullptr};
  EXPECT_EQ(errorOf([&] { takeLeading<FunctionPtr>(none); }), "KALVEX:NotEnoughInputs");
}

/// What a method gives its operation's constructor, and the strategy of its result. In `inputs`: o
/// options, f and g functions, x the lazy array, 2 the number 2, l a local array of it, c two
/// partitions, t true, 4 partition metadata. In `given`: the same letters, i and n the counts of
/// inputs and outputs.
struct MethodRow {
  std::string_view method, operation, inputs, given;
  std::string_view strategy = "FixedNumPartitionStrategy";
  bool isDependent = false;
};

constexpr std::string_view kBroadcast = "BroadcastPartitionStrategy";
constexpr MethodRow kRows[] = {
    {"elementfun", "ElementwiseOperation", "ofcx", ""},
    {"smallTallComparison", "SmallTallComparisonOperation", "of2tcx", "of2t2 1"},
    {"logicalElementfun", "LogicalElementwiseOperation", "ofcx", "of2 1"},
    {"assertAdaptorCorrect", "AdaptorAssertionOperation", "fc", "of1 1"},
    {"slicefun", "SlicewiseOperation", "fcx", ""},
    {"filterslices", "FilterOperation", "xcc", "2"},
    {"logicalRowSubsref", "LogicalRowSubsrefOperation", "xcc", "2"},
    {"reducefun", "AggregateOperation", "ofc", "off1 1", kBroadcast},
    {"aggregatefun", "AggregateOperation", "ofgc", "ofg1 1", kBroadcast},
    {"reducebykeyfun", "AggregateByKeyOperation", "fxc", "off2 1", "ArbitraryPartitionStrategy"},
    {"aggregatebykeyfun", "AggregateByKeyOperation", "fgxc", "ofg2 1",
     "ArbitraryPartitionStrategy"},
    {"chunkfun", "ChunkwiseOperation", "fc", "of1 1"},
    {"fixedchunkfun", "FixedChunkwiseOperation", "olfc", "o2f1 1"},
    {"partitionfun", "PartitionwiseOperation", "fc", "of1 1", "FixedNumPartitionStrategy", true},
    {"generalpartitionfun", "GeneralizedPartitionwiseOperation", "fc", "of1 1",
     "FixedNumPartitionStrategy", true},
    {"partitionheadfun", "PartitionwiseOperation", "fc", "of1 1t", "FixedNumPartitionStrategy",
     true},
    {"repartition", "RepartitionOperation", "4xc", "s1"},
    {"resizechunks", "ChunkResizeOperation", "c2t", "1 2t"},
    {"clientfun", "NonPartitionedOperation", "fc", "of1 1", kBroadcast},
    {"strictslicefun", "SlicewiseOperation", "fcx", ""},
};

TEST_F(ArrayMethodsTest, MethodsMakeTheirOperationsFromTheirInputs) {
  const Value valueFuture = ki::toArray(future(closure({})));
  const Value metadata = make("PartitionMetadata", two);
  const std::map<char, Value> things = [&] {
    std::map<char, Value> made;
    made['c'] = callWith("createFromFutureBuiltin", {valueFuture.get(), two.get()});
    made['t'] = kv::host::makeLogical(true);
    made['g'] = plus();
    made['l'] = wrapper("LocalArray", kv::host::makeDouble(2));
    for (const auto& [letter, value] :
         {std::pair{'o', &options}, {'f', &function}, {'x', &x}, {'2', &two}, {'4', &metadata}}) {
      made[letter] = matrix::sharedCopy(value->get());
    }
    return made;
  }();
  /// A constructor's input as the table writes it.
  const auto letterOf = [&](const Value& input) -> std::string {
    const std::string name = kxGetClassName(input.get());
    if (name == "double") return std::to_string(static_cast<int>(number(input))) + " ";
    if (name == "logical") return "t";
    if (name.ends_with("PartitionedArrayOptions")) return "o";
    if (name.ends_with("FixedNumPartitionStrategy")) return "s";
    const Value handle = get(input, "Handle");
    return kxIsSameValue(handle.get(), function.get()) ? "f" : "g";
  };
  for (const MethodRow& row : kRows) {
    SCOPED_TRACE(row.method);
    std::vector<const kxArray*> inputs;
    for (const char letter : row.inputs) inputs.push_back(things.at(letter).get());
    const Value array = std::move(method(row.method, 1, inputs)[0]);
    EXPECT_EQ(strategyOf(array), row.strategy);
    EXPECT_EQ(promiseOf(array).isPartitionIndependent(), !row.isDependent);
    const Value operation = ki::toArray(promiseOf(array).getClosure()->getOperation());
    EXPECT_THAT(kxGetClassName(operation.get()), ::testing::EndsWith(row.operation));
    if (row.given.empty()) continue;  // a native class
    std::string given;
    for (const Value& input : constructed(row.operation).inputs) given += letterOf(input);
    std::erase(given, ' ');
    std::string expected(row.given);
    std::erase(expected, ' ');
    EXPECT_EQ(given, expected);
  }
}

TEST_F(ArrayMethodsTest, ResizingReadsOnlyTheArrays) {
  const Value array = std::move(method("resizechunks", 1, {x.get(), two.get(), two.get()})[0]);
  EXPECT_EQ(promiseOf(array).getClosure()->getInputFutures().size(), 1u);
  method("resizechunks", 1, {x.get()});
  EXPECT_EQ(constructed("ChunkResizeOperation").inputs.size(), 1u);
  EXPECT_EQ(errorOf([&] { method("resizechunks", 2, {x.get()}); }), "KALVEX:NotEnoughInputs");
}

TEST_F(ArrayMethodsTest, AStrictSlicewiseOperationDoesntSpread) {
  for (const auto& [name, spreads] : {std::pair{"slicefun", true}, {"strictslicefun", false}}) {
    const Value array = std::move(method(name, 1, {function.get(), x.get()})[0]);
    const Value operation = ki::toArray(promiseOf(array).getClosure()->getOperation());
    EXPECT_EQ(getFlag(operation, "AllowTallDimExpansion"), spreads);
    EXPECT_EQ(kv::host::toLogical(invoke(operation, "isSlicewiseFusable").get()), spreads);
    EXPECT_FALSE(getFlag(operation, "SupportsDirectEvaluation"));
  }
}

TEST_F(ArrayMethodsTest, TheConditionOfAChoiceIsBroadcastFirst) {
  stub("kalvex.bigdata.internal.broadcast",
       [&](const Call& c) { c.out(0, kv::host::makeLogical(true)); });
  calls.clear();
  const Value array = std::move(method("ternaryfun", 1, {two.get(), x.get(), two.get()})[0]);
  EXPECT_EQ(takeCalls(), "broadcast TernaryOperation keepAlive");
  const auto& inputs = promiseOf(array).getClosure()->getInputFutures();
  ASSERT_EQ(inputs.size(), 3u);
  EXPECT_TRUE(kv::host::toLogical(inputs[0]->getValue()));
  const auto error = [&](int nlhs, const std::vector<const kxArray*>& list) {
    return errorOf([&] { method("ternaryfun", nlhs, list); });
  };
  const std::vector<const kxArray*> pair{x.get(), x.get()};
  EXPECT_EQ(error(2, pair), "KALVEX:TooManyOutputs");
  EXPECT_EQ(error(1, {x.get(), x.get(), x.get(), x.get()}), "KALVEX:TooManyInputs");
  EXPECT_EQ(error(1, pair), "KALVEX:NotEnoughInputs");
}

TEST_F(ArrayMethodsTest, AligningMakesNoOperation) {
  stub("kalvex.bigdata.internal.lazyeval.alignpartitions", [](const Call& c) {
    for (int i = 0; i < c.nlhs; ++i) c.out(i, matrix::sharedCopy(c.in(i)));
  });
  const std::vector<Value> aligned = method("alignpartitions", 2, {x.get(), two.get()});
  EXPECT_TRUE(isSameObject(aligned[0], x));
  EXPECT_EQ(number(aligned[1]), 2);
}

TEST_F(ArrayMethodsTest, AReductionByOneFunctionHasOneHandle) {
  for (const auto& [name, operation] : {std::pair{"reducefun", "AggregateOperation"},
                                        {"reducebykeyfun", "AggregateByKeyOperation"}}) {
    method(name, 1, {function.get(), x.get()});
    EXPECT_TRUE(isSameObject(constructed(operation).inputs[1], constructed(operation).inputs[2]));
  }
}

TEST_F(ArrayMethodsTest, TabularReferencesUnwrapLocalArrays) {
  const Value local = wrapper("LocalArray", kv::host::makeString("inside"));
  const Value flag = wrapper("LocalArray", kv::host::makeLogical(true));
  method("subsrefTabularVar", 1, {two.get(), local.get(), flag.get(), x.get()});
  const auto& inputs = constructed("SubsrefTabularVarOperation").inputs;
  ASSERT_EQ(inputs.size(), 5u);
  EXPECT_EQ(number(inputs[0]), 1);
  EXPECT_EQ(number(inputs[1]), 1);
  EXPECT_TRUE(kv::host::toLogical(inputs[2].get()));
  EXPECT_EQ(number(inputs[3]), 2);
  EXPECT_EQ(kv::host::toText(inputs[4].get()), "inside");
}

TEST_F(ArrayMethodsTest, MarksAndTellsPartitionIndependence) {
  const auto isIndependent = [&](const std::vector<const kxArray*>& inputs) {
    return kv::host::toLogical(method("isPartitionIndependent", 1, inputs)[0].get());
  };
  EXPECT_TRUE(isIndependent({x.get(), two.get()}));
  promiseOf(x).setPartitionIndependent(false);
  EXPECT_FALSE(isIndependent({two.get(), x.get()}));

  method("markPartitionIndependent", 0, {x.get()});
  EXPECT_TRUE(isIndependent({x.get()}));
  const std::vector<Value> passed = method("markPartitionIndependent", 2, {x.get(), two.get()});
  EXPECT_TRUE(isSameObject(passed[0], x));
  EXPECT_EQ(number(passed[1]), 2);

  kxArray* answer = nullptr;
  bigdata::lazyeval::isPartitionIndependent({0, &answer, 0, nullptr});
  EXPECT_TRUE(kv::host::toLogical(matrix::from_kalvex(answer).get()));
}

TEST_F(ArrayMethodsTest, RandomStateBringsAStreamFactoryOnce) {
  stub("kalvex.bigdata.internal.RandStreamFactory",
       [](const Call& c) { c.out(0, kv::host::makeString("factory")); });
  const Value yes = kv::host::makeLogical(true);
  session.set(options.get(), "RequiresRandState", yes.get());
  calls.clear();
  for (int i = 0; i < 2; ++i) method("elementfun", 1, {options.get(), function.get(), x.get()});
  EXPECT_EQ(takeCalls(), "RandStreamFactory keepAlive keepAlive");
  EXPECT_EQ(getText(options, "RandStreamFactory"), "factory");
}

}  // namespace

}  // namespace bigdata::lazyeval
