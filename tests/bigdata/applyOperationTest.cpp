#include "lazyeval/applyOperation.h"

#include "LazySession.h"
#include "PartitionMetadata.h"
#include "executor/PartitionStrategy.h"

namespace bigdata::lazyeval {

namespace {

constexpr auto kClosureClass = "kalvex.bigdata.internal.lazyeval.Closure";

class ApplyOperationTest : public LazySession {
 protected:
  std::vector<Value> apply(const Value& operation, int nlhs,
                           std::vector<const kxArray*> inputs = {}) {
    inputs.insert(inputs.begin(), operation.get());
    return session.call("applyOperationBuiltin", nlhs, inputs);
  }
  Value directOperation(int numInputs, int numOutputs) {
    const OperationPtr made = operation(numInputs, numOutputs);
    made->setSupportsDirectEvaluation(true);
    return ki::toArray(made);
  }
  static const LazyPartitionedArray& lazy(const Value& array) {
    return *ki::fromArray<LazyArrayPtr>(array.get());
  }
  Value fixedArray(double numPartitions) {
    const Value partitioning = kv::host::makeDouble(numPartitions);
    const Value future = ki::toArray(constant(1));
    return callWith("createFromFutureBuiltin", {future.get(), partitioning.get()});
  }
  std::size_t closures() {
    session.collect();
    return session.liveObjects(kClosureClass);
  }

  const Value two = kv::host::makeDouble(2);
};

TEST_F(ApplyOperationTest, RecordsAClosureWhereItMayNotEvaluate) {
  const Value operation = ki::toArray(this->operation(1, 3));
  calls.clear();
  const std::vector<Value> arrays = apply(operation, 2, {two.get()});
  EXPECT_EQ(takeTrace(), "default() keepAlive(default executor) keepAlive(default executor)");
  ASSERT_EQ(arrays.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_FALSE(lazy(arrays[i]).promise().isDone());
    EXPECT_EQ(lazy(arrays[i]).promise().getArgoutIndex(), i + 1);
  }
  EXPECT_EQ(lazy(arrays[0]).getPartitionMetadata().get(),
            lazy(arrays[1]).getPartitionMetadata().get());
  EXPECT_TRUE(
      kxIsSameValue(lazy(arrays[0]).getStoredExecutor(), lazy(arrays[1]).getStoredExecutor()));
  const Closure& closure = *lazy(arrays[0]).promise().getClosure();
  EXPECT_EQ(closure.getOutputPromises().size(), 3u);
  EXPECT_EQ(kv::host::toDouble(closure.getInputFutures().at(0)->getValue()), 2);
}

TEST_F(ApplyOperationTest, EvaluatesAtOnceWhereAllIsThere) {
  const Value operation = directOperation(1, 1);
  calls.clear();
  const std::vector<Value> arrays = apply(operation, 1, {two.get()});
  EXPECT_EQ(takeTrace(),
            "default() directEvaluateImpl(TestOperation 2) keepAlive(default executor)");
  EXPECT_TRUE(lazy(arrays[0]).promise().isDone());
  EXPECT_EQ(kv::host::toDouble(lazy(arrays[0]).promise().getCachedValue()), 42);
  EXPECT_EQ(closures(), 0u);
  EXPECT_EQ(apply(directOperation(0, 1), 1).size(), 1u);  // no inputs count as done
  EXPECT_EQ(closures(), 0u);
}

TEST_F(ApplyOperationTest, WithoutOutputsOrWithTooManyRecordsNothingThatStays) {
  apply(ki::toArray(operation(1, 1)), 0, {two.get()});
  EXPECT_NE(errorOf([&] { apply(ki::toArray(operation(1, 1)), 2, {two.get()}); }), "no error");
  EXPECT_EQ(closures(), 0u);
  const Value direct = directOperation(1, 1);
  calls.clear();
  apply(direct, 0, {two.get()});
  EXPECT_EQ(takeCalls(), "default directEvaluateImpl");
}

TEST_F(ApplyOperationTest, APendingOrDependentInputForcesARecord) {
  const Value direct = directOperation(1, 1);
  const ClosurePtr upstream = closure({});
  const Value pending = lazyArray(future(upstream));
  EXPECT_TRUE(lazy(apply(direct, 1, {pending.get()})[0]).promise().isPartitionIndependent());

  promise(upstream)->setPartitionIndependent(false);
  promise(upstream)->setValue(kv::host::makeDouble(1));
  const ClosurePromise& output = lazy(apply(direct, 1, {pending.get(), two.get()})[0]).promise();
  EXPECT_FALSE(output.isDone());
  EXPECT_FALSE(output.isPartitionIndependent());
}

TEST_F(ApplyOperationTest, PartitioningFollowsFromInputsUnlessMetadataIsGiven) {
  const Value operation = ki::toArray(this->operation(1, 1));
  const Value fixed = fixedArray(4);
  const auto strategyOf = [&](const std::vector<const kxArray*>& inputs) {
    const std::vector<Value> arrays = apply(operation, 1, inputs);
    return kxGetClassName(ki::toArray(lazy(arrays[0]).getPartitionMetadata()->getStrategy()).get());
  };
  const std::string root = "kalvex.bigdata.internal.executor.";
  EXPECT_EQ(strategyOf({two.get()}), root + "BroadcastPartitionStrategy");
  EXPECT_EQ(strategyOf({fixed.get()}), root + "FixedNumPartitionStrategy");
  const Value broadcast = ki::toArray(makeBroadcastMetadata());
  EXPECT_EQ(strategyOf({broadcast.get(), fixed.get()}), root + "BroadcastPartitionStrategy");
}

TEST_F(ApplyOperationTest, AConstantBecomesACompleteArray) {
  const Value local = wrapper("LocalArray", kv::host::makeDouble(3));
  calls.clear();
  for (const kxArray* constant : {two.get(), local.get()}) {
    const Value array = callWith("createFromConstantBuiltin", {constant});
    EXPECT_EQ(takeCalls(), "default keepAlive");
    EXPECT_EQ(kv::host::toDouble(lazy(array).promise().getCachedValue()),
              constant == two.get() ? 2 : 3);
  }
}

TEST_F(ApplyOperationTest, OnlyAnArrayFromAFutureReplacesAnEmptyExecutor) {
  const Value empty = kv::host::makeEmptyDouble();
  const Value fromConstant = callWith("createFromConstantBuiltin", {two.get(), empty.get()});
  EXPECT_TRUE(kxIsEmpty(lazy(fromConstant).getStoredExecutor()));
  const Value future = ki::toArray(constant(1));
  const Value fromFuture =
      callWith("createFromFutureBuiltin", {future.get(), empty.get(), empty.get()});
  EXPECT_TRUE(kxIsSameValue(lazy(fromFuture).getStoredExecutor(), executor.get()));
  calls.clear();
  callWith("createFromFutureBuiltin", {future.get(), empty.get(), two.get()});
  EXPECT_EQ(takeTrace(), "keepAlive(2)");
}

TEST_F(ApplyOperationTest, ADatastoreIsCopiedCheckedAndRead) {
  stub("copy", [](const Call& c) { c.out(0, kv::host::makeDouble(5)); });
  calls.clear();
  const Value array = callWith("createFromDatastoreBuiltin", {two.get()});
  EXPECT_EQ(takeTrace(),
            "copy(2) checkDatastoreSupportForDefault(5) ReadOperation(5 1) default() "
            "keepAlive(default executor)");
  EXPECT_EQ(lazy(array).getPartitionMetadata()->getStrategy()->getMinNumPartitions(), 5u);
  EXPECT_FALSE(lazy(array).promise().isDone());
}

TEST_F(ApplyOperationTest, AFailedCopyComesBackThroughTheHost) {
  stub("copy", [](const Call&) { kv::host::raise("KALVEX:OutOfMemory"); });
  stub("kalvex.bigdata.internal.throw",
       [](const Call&) { kv::host::raise("KALVEX:session:Closed"); });
  calls.clear();
  EXPECT_EQ(errorOf([&] { callWith("createFromDatastoreBuiltin", {two.get()}); }),
            "KALVEX:session:Closed");
  const auto& inputs = lastCall("kalvex.bigdata.internal.throw").inputs;
  EXPECT_EQ(kv::host::toText(get(inputs[0], "identifier").get()), "KALVEX:OutOfMemory");
  EXPECT_EQ(takeTrace(), "copy(2) throw(KException IncludeCalleeStack true)");
}

}  // namespace

}  // namespace bigdata::lazyeval
