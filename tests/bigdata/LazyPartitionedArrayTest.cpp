#include "lazyeval/LazyPartitionedArray.h"

#include "LazySession.h"
#include "PartitionMetadata.h"
#include "ki/createManagedObject.h"
#include "lazyeval/parseArrayInput.h"

namespace bigdata::lazyeval {

namespace {

class LazyPartitionedArrayTest : public LazySession {
 protected:
  Value arrayWith(const Value& partitioning, const Value& arrayExecutor) {
    const Value future = ki::toArray(constant(1));
    return callWith("createFromFutureBuiltin",
                    {future.get(), partitioning.get(), arrayExecutor.get()});
  }
  std::string valueOf(const ParsedArrayInput& input) {
    return kv::host::toText(input.future->getValue());
  }
  ParsedArrayInputs parse(const std::vector<const kxArray*>& inputs) {
    std::vector<const kxArray*> list = inputs;
    return parseArrayInputs(static_cast<int>(list.size()), list.data());
  }

  const Value four = kv::host::makeDouble(4);
  const Value text = kv::host::makeString("text");
};

TEST_F(LazyPartitionedArrayTest, TellsItsExecutorLastThatItIsInUse) {
  lazyArray(constant(1));
  EXPECT_EQ(takeCalls(), "keepAlive");
  stub("keepAlive", [](const Call&) { kv::host::raise("KALVEX:OutOfMemory"); });
  EXPECT_EQ(errorOf([&] { lazyArray(constant(1)); }), "KALVEX:OutOfMemory");
  session.collect();
  EXPECT_EQ(session.liveObjects("kalvex.bigdata.internal.lazyeval.LazyPartitionedArray"), 0u);
}

TEST_F(LazyPartitionedArrayTest, AsksTheExecutorInForceAndShowsTheStoredOne) {
  const Value array = lazyArray(constant(1));
  EXPECT_EQ(takeTrace(), "keepAlive(default executor)");
  EXPECT_TRUE(getFlag(array, "IsValid"));
  EXPECT_EQ(takeTrace(), "override() checkIsValidNow(default executor)");
  overridingExecutor = kv::host::makeEmptyDouble();
  EXPECT_EQ(kv::host::toDouble(session.invoke(array.get(), "numpartitions", 1, {})[0].get()), 7);
  EXPECT_EQ(takeTrace(), "override() numPartitions(default executor BroadcastPartitionStrategy)");

  overridingExecutor = kv::host::makeString("override");
  getFlag(array, "IsValid");
  EXPECT_EQ(takeTrace(), "override() checkIsValidNow(override)");
  EXPECT_EQ(kv::host::toText(session.invoke(array.get(), "getExecutor", 1, {})[0].get()),
            "override");
  EXPECT_EQ(kv::host::toText(get(array, "Executor").get()), "default executor");
}

TEST_F(LazyPartitionedArrayTest, KeepsMetadataOfTheValueWithItsPromise) {
  const FuturePtr future = constant(1);
  const Value a = lazyArray(future);
  const Value b = lazyArray(future);
  const kxArray* inputs[] = {text.get()};
  session.invoke(a.get(), "hSetMetadata", 0, inputs);
  EXPECT_EQ(kv::host::toText(session.invoke(b.get(), "hGetMetadata", 1, {})[0].get()), "text");
}

TEST_F(LazyPartitionedArrayTest, DeletedMetadataIsReadAsAPropertyOnly) {
  const Value array = lazyArray(constant(1));
  const Value metadata = invoke(array, "getPartitionMetadata");
  session.deleteObject(metadata.get());
  EXPECT_TRUE(isSameObject(get(array, "PartitionMetadata"), metadata));
  EXPECT_EQ(errorOf([&] { invoke(array, "getPartitionMetadata"); }), "KALVEX:class:InvalidHandle");
}

TEST_F(LazyPartitionedArrayTest, ADefaultMadeShellRaisesOnUse) {
  const Value shell = ki::toArray(ki::createManagedObject<LazyPartitionedArray>());
  EXPECT_EQ(errorOf([&] { session.invoke(shell.get(), "hGetMetadata", 1, {}); }),
            "KALVEX:class:InvalidHandle");
  EXPECT_EQ(errorOf([&] { parseArrayInput(shell.get()); }), "KALVEX:class:InvalidHandle");
}

TEST_F(LazyPartitionedArrayTest, ReducesEachKindOfInput) {
  const FuturePtr future = constant(1);
  const Value lazy = lazyArray(future);
  const ParsedArrayInput parsed = parseArrayInput(lazy.get());
  EXPECT_EQ(parsed.future.get(), future.get());
  EXPECT_TRUE(kxIsSameValue(parsed.executor.get(), executor.get()));
  EXPECT_TRUE(parsed.strategy);

  const Value local = wrapper("LocalArray", matrix::sharedCopy(text.get()));
  const Value broadcast = wrapper("BroadcastArray", matrix::sharedCopy(text.get()));
  const Value empty = kv::host::makeEmptyDouble();
  EXPECT_EQ(valueOf(parseArrayInput(local.get())), "text");
  EXPECT_EQ(valueOf(parseArrayInput(text.get())), "text");
  EXPECT_TRUE(kxIsSameValue(parseArrayInput(broadcast.get()).future->getValue(), broadcast.get()));
  EXPECT_EQ(kxGetClassID(parseArrayInput(empty.get()).future->getValue()), kxDOUBLE_CLASS);
  for (const kxArray* input : {local.get(), broadcast.get(), text.get()}) {
    const ParsedArrayInput constant = parseArrayInput(input);
    EXPECT_EQ(constant.executor, nullptr);
    EXPECT_FALSE(constant.strategy);
    EXPECT_TRUE(constant.future->isDone());
  }
}

TEST_F(LazyPartitionedArrayTest, ABroadcastArrayAroundALazyOneBecomesAClientOperation) {
  const Value broadcast = wrapper("BroadcastArray", lazyArray(constant(1)));
  calls.clear();
  const ParsedArrayInput parsed = parseArrayInput(broadcast.get());
  EXPECT_FALSE(parsed.future->isDone());
  EXPECT_EQ(parsed.executor, nullptr);
  EXPECT_FALSE(parsed.strategy);
  const auto& inputs = lastCall("kalvex.bigdata.internal.lazyeval.NonPartitionedOperation").inputs;
  EXPECT_EQ(kv::host::functionName(get(inputs[1], "Handle").get()),
            "kalvex.bigdata.internal.BroadcastArray");
}

TEST_F(LazyPartitionedArrayTest, AsksOncePerDifferentExecutorAgainstTheFirst) {
  const Value a = arrayWith(four, kv::host::makeString("A"));
  const Value b = arrayWith(four, kv::host::makeString("B"));
  calls.clear();
  const ParsedArrayInputs parsed = parse({text.get(), a.get(), b.get(), a.get(), b.get()});
  EXPECT_EQ(takeTrace(), "checkSameExecutor(A B) checkSameExecutor(A B)");
  EXPECT_EQ(kv::host::toText(parsed.executor.get()), "A");
  EXPECT_EQ(parsed.futures.size(), 5u);

  const Value one = arrayWith(four, kv::host::makeDouble(1));
  const Value equal = arrayWith(four, kv::host::makeDouble(1));
  calls.clear();
  parse({one.get(), equal.get()});
  EXPECT_EQ(takeTrace(), "checkSameExecutor(1 1)");
}

TEST_F(LazyPartitionedArrayTest, BroadcastAndConstantsHaveNoVoteOnTheStrategy) {
  const Value broadcast = lazyArray(constant(1));
  const Value fixed = arrayWith(four, executor);
  EXPECT_FALSE(parse({text.get(), broadcast.get()}).strategy);
  EXPECT_TRUE(parse({broadcast.get()}).executor != nullptr);
  EXPECT_EQ(parse({broadcast.get(), fixed.get(), text.get()}).strategy->getMinNumPartitions(), 4u);
}

}  // namespace

}  // namespace bigdata::lazyeval
