#include "lazyeval/arrayMethods.h"

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

TEST_F(ArrayMethodsTest, RefusesAMissingOrWrongFunction) {
  const auto error = [&](const std::vector<const kxArray*>& inputs) {
    return errorOf([&] { session.invoke(x.get(), "elementfun", 1, inputs); });
  };
  EXPECT_EQ(error({two.get()}), internalError("Function handle must be a function_handle or a "
                                              "kalvex.bigdata.internal.FunctionHandle."));
  RawInputs none{0, nullptr};
  EXPECT_EQ(errorOf([&] { takeLeading<FunctionPtr>(none); }), "KALVEX:NotEnoughInputs");
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

TEST_F(ArrayMethodsTest, FilterSlicesWithoutInputsHandsOnAWrappedCount) {
  kxArray* output = nullptr;
  EXPECT_EQ(errorOf([&] { filterslices(1, &output, 0, nullptr); }),
            "KALVEX:validateattributes:invalidType | Input | scalar size_t | 1x1 double");
  EXPECT_EQ(number(constructed("FilterOperation").inputs[0]), 18446744073709551616.0);
}

TEST_F(ArrayMethodsTest, AggregatesAreBroadcastAndReduceUsesOneHandleTwice) {
  const Value other = plus();
  Value array = std::move(
      method("aggregatefun", 1, {options.get(), function.get(), other.get(), x.get()})[0]);
  EXPECT_EQ(strategyOf(array), "BroadcastPartitionStrategy");
  const auto& inputs = constructed("AggregateOperation").inputs;
  ASSERT_EQ(inputs.size(), 5u);
  EXPECT_TRUE(isSameObject(inputs[0], options));
  EXPECT_TRUE(kxIsSameValue(get(inputs[1], "Handle").get(), function.get()));
  EXPECT_TRUE(kxIsSameValue(get(inputs[2], "Handle").get(), other.get()));
  EXPECT_EQ(number(inputs[3]), 1);
  EXPECT_EQ(number(inputs[4]), 1);

  array = std::move(method("reducefun", 1, {function.get(), x.get()})[0]);
  EXPECT_TRUE(isSameObject(constructed("AggregateOperation").inputs[1],
                           constructed("AggregateOperation").inputs[2]));
}

TEST_F(ArrayMethodsTest, ClientFunctionsAreBroadcast) {
  const Value partitioned = [&] {
    const Value four = kv::host::makeDouble(4);
    const Value valueFuture = ki::toArray(future(closure({})));
    return callWith("createFromFutureBuiltin", {valueFuture.get(), four.get()});
  }();
  const std::vector<Value> arrays = method("clientfun", 2, {function.get(), partitioned.get()});
  ASSERT_EQ(arrays.size(), 2u);
  EXPECT_EQ(strategyOf(arrays[1]), "BroadcastPartitionStrategy");
  EXPECT_EQ(strategyOf(method("elementfun", 1, {function.get(), partitioned.get()})[0]),
            "FixedNumPartitionStrategy");
  const auto& inputs = constructed("NonPartitionedOperation").inputs;
  ASSERT_EQ(inputs.size(), 4u);
  EXPECT_EQ(number(inputs[2]), 1);
  EXPECT_EQ(number(inputs[3]), 2);
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
  bigdata::lazyeval::isPartitionIndependent(0, &answer, 0, nullptr);
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

TEST_F(ArrayMethodsTest, TakesCountsAndMetadataOffTheFront) {
  const Value local = wrapper("LocalArray", kv::host::makeDouble(7));
  const Value empty = kv::host::makeEmptyDouble();
  const Value metadata = make("PartitionMetadata", two);
  const kxArray* list[] = {local.get(), metadata.get(), empty.get()};
  RawInputs inputs{3, list};
  EXPECT_EQ(takeLeading<std::size_t>(inputs), 7u);
  EXPECT_TRUE(takeLeading<ki::KalvexManagedPtr<PartitionMetadata>>(inputs));
  EXPECT_EQ(errorOf([&] { takeLeading<ki::KalvexManagedPtr<PartitionMetadata>>(inputs); }),
            internalError("Expected a valid kalvex.bigdata.internal.PartitionMetadata object."));
  EXPECT_EQ(errorOf([&] { takeLeading<bool>(inputs); }), "KALVEX:NotEnoughInputs");
}

}  // namespace

}  // namespace bigdata::lazyeval
