#include <cmath>

#include "FunctionHandle.h"
#include "LazySession.h"
#include "PartitionedArrayOptions.h"
#include "ki/createManagedObject.h"
#include "lazyeval/ElementwiseOperation.h"
#include "lazyeval/arrayMethods.h"
#include "lazyeval/evaluationMethods.h"
#include "lazyeval/leadingValues.h"
#include "lazyeval/operationArguments.h"
#include "lazyeval/reuse.h"

namespace bigdata::lazyeval {

namespace {

constexpr auto kArrayClass = "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";

/// What calls by name can't show; the stories cover the rest.
class NativeCalls : public LazySession {
 protected:
  const Value two = kv::host::makeDouble(2);
  const Value x = lazyArray(future(closure({})));
  const Value y = lazyArray(future(closure({})));
};

TEST_F(NativeCalls, WithoutInputsFilterSlicesHandsOnAWrappedCountAndOthersRefuse) {
  kxArray* output = nullptr;
  EXPECT_EQ(errorOf([&] {
              filterslices({1, &output, 0, nullptr});
            }),
            "KALVEX:validateattributes:invalidType | Input | scalar size_t | 1x1 double");
  const HostCall& made = lastCall("kalvex.bigdata.internal.lazyeval.FilterOperation");
  EXPECT_EQ(kv::host::toDouble(made.inputs[0].get()), 18446744073709551616.0);
  RawInputs none{0, nullptr};
  EXPECT_EQ(errorOf([&] { takeLeading<FunctionPtr>(none); }), "KALVEX:NotEnoughInputs");
  isPartitionIndependent({0, &output, 0, nullptr});
  EXPECT_TRUE(kv::host::toLogical(matrix::from_kalvex(output).get()));
}

TEST_F(NativeCalls, ConstructorsOfOperationsCheckCountsThenConvertFromTheLast) {
  const Value row = matrix::from_kalvex(kxCreateDoubleMatrix(1, 2, 0));
  const auto construct = [&](std::vector<const kxArray*> inputs) {
    return errorOf(
        [&] { parseOperationArguments(static_cast<int>(inputs.size()), inputs.data()); });
  };
  EXPECT_EQ(construct({two.get()}), "KALVEX:NotEnoughInputs");
  EXPECT_EQ(construct({two.get(), two.get(), row.get(), row.get(), two.get()}),
            "KALVEX:TooManyInputs");
  EXPECT_EQ(construct({two.get(), two.get(), row.get()}),
            "KALVEX:validateattributes:invalidType | Input | scalar logical | ");
}

TEST_F(NativeCalls, AReductionByOneFunctionHasOneHandle) {
  for (const auto& [name, operation] : {std::pair{"reducefun", "AggregateOperation"},
                                        {"reducebykeyfun", "AggregateByKeyOperation"}}) {
    call(name, plus(), x);
    const auto& inputs =
        lastCall("kalvex.bigdata.internal.lazyeval." + std::string(operation)).inputs;
    EXPECT_TRUE(isSameObject(inputs[1], inputs[2]));
  }
}

TEST_F(NativeCalls, ArraysOfOneCallShareClosureMetadataAndExecutor) {
  const Value operation = ki::toArray(this->operation(1, 3));
  const kxArray* inputs[] = {operation.get(), two.get()};
  const std::vector<Value> arrays = session.call("applyOperationBuiltin", 2, inputs);
  EXPECT_TRUE(
      isSameObject(get(arrays[0], "PartitionMetadata"), get(arrays[1], "PartitionMetadata")));
  EXPECT_TRUE(kxIsSameValue(get(arrays[0], "Executor").get(), get(arrays[1], "Executor").get()));
  const auto closureOf = [&](const Value& array) {
    return get(get(get(array, "ValueFuture"), "Promise"), "Closure");
  };
  EXPECT_TRUE(isSameObject(closureOf(arrays[0]), closureOf(arrays[1])));
}

TEST_F(NativeCalls, MarkingWritesOneOutputMoreThanIsAskedFor) {
  const std::array<const kxArray*, 3> inputs{x.get(), y.get(), x.get()};
  const auto written = [&](int nlhs) {
    std::vector<kxArray*> outputs(4, nullptr);
    std::array<const kxArray*, 3> list = inputs;
    markforreuse({nlhs, outputs.data(), 3, list.data()});
    std::string names;
    for (kxArray* output : outputs) {
      const Value owned = matrix::from_kalvex(output);
      names += owned == nullptr ? '-' : isSameObject(owned, x) ? 'x' : 'y';
    }
    return names;
  };
  EXPECT_EQ(written(0), "x---");
  EXPECT_EQ(written(1), "xy--");
  EXPECT_EQ(written(2), "xyx-");
  EXPECT_EQ(session.call("markforreuse", 1, inputs).size(), 1u);
  EXPECT_EQ(session.call("markforreuse", 2, inputs).size(), 2u);
}

TEST_F(NativeCalls, ReachTheMethodsOfEvaluation) {
  auto completion = std::make_shared<kv::host::ClassCompletion>();
  completion->name = kArrayClass;
  completion->methods.push_back(
      {.name = "gather", .body = [](const Call& c) { c.out(0, kv::host::makeDouble(3)); }});
  session.completeClass(completion);
  const kxArray* inputs[] = {x.get()};
  kxArray* output = nullptr;
  gather({1, &output, 1, inputs});
  EXPECT_EQ(kv::host::toDouble(matrix::from_kalvex(output).get()), 3);
  output = nullptr;
  EXPECT_EQ(errorOf([&] {
              clientforeach({1, &output, 1, inputs});
            }),
            internalError("Could not find method " + std::string(kArrayClass) + "/clientforeach"));
}

TEST_F(NativeCalls, LinksOfAClosureThatAreSetReplaceTheOldOnes) {
  const ClosurePtr reader = closure({future(closure({}))}, 2);
  const FuturePtr input = constant(1);
  reader->setInputFutures({input, input});
  ASSERT_EQ(reader->getInputFutures().size(), 2u);
  EXPECT_EQ(reader->getInputFutures()[0].get(), input.get());
  const PromisePtr second = promise(reader, 1);
  reader->setOutputPromises({second});
  ASSERT_EQ(reader->getOutputPromises().size(), 1u);
  EXPECT_EQ(promise(reader).get(), second.get());
  session.collect();
  EXPECT_EQ(session.liveObjects("kalvex.bigdata.internal.lazyeval.Closure"), 3u);  // with x and y
}

TEST_F(NativeCalls, AStreamComesBackAfterAFailureAndItsOwnFailureIsSilent) {
  for (const char* name : {"RandStream.getGlobalStream", "getRandStreamForPartition"}) {
    stub(name, [](const Call& c) { c.out(0, kv::host::makeString("stream")); });
  }
  int numSet = 0;
  stub("RandStream.setGlobalStream", [&](const Call&) {
    if (++numSet == 2) {
      kv::host::raise("KALVEX:session:Closed");
    }
  });
  auto failing = std::make_shared<kv::host::ClassCompletion>();
  failing->name = "kalvex.bigdata.internal.lazyeval.ElementwiseOperation";
  failing->methods.push_back({.name = "directEvaluateImpl",
                              .body = [](const Call&) { kv::host::raise("KALVEX:OutOfMemory"); },
                              .access = kcos::MemberAccess::Protected});
  session.completeClass(failing);
  auto options = ki::createManagedObject<PartitionedArrayOptions>();
  options->setRequiresRandState(true);
  const auto handle = ki::createManagedObject<FunctionHandle>(plus());
  const Value operation =
      ki::toArray(ki::createManagedObject<ElementwiseOperation>(options, handle, 0u, 1u));
  EXPECT_EQ(errorOf([&] { invoke(operation, "directEvaluate"); }), "KALVEX:OutOfMemory");
  EXPECT_EQ(numSet, 2);
}

TEST_F(NativeCalls, AnInterruptPassesAFunctionHandleUntouched) {
  class Interrupt : public kv::host::PassThrough {};
  const auto stop = kv::host::makeFunctionHandle("stop", [](const Call&) { throw Interrupt(); });
  const Value made =
      ki::toArray(ki::createManagedObject<FunctionHandle>(matrix::sharedCopy(stop.get())));
  takeCalls();
  EXPECT_THROW(invoke(made, "feval"), Interrupt);
  EXPECT_EQ(takeCalls(), "");
}

TEST_F(NativeCalls, AHandleMadeNativelyTakesTheUsersStackWithoutAHostCall) {
  session.setStackProvider([] { return std::vector<kv::host::Frame>{{"user.cpp", "f", 3}}; });
  takeCalls();
  const auto made = ki::createManagedObject<FunctionHandle>(plus());
  EXPECT_EQ(kxGetNumberOfElements(made->getErrorStack()), 1u);
  EXPECT_TRUE(std::isinf(made->getMaxNumSlices()));
  EXPECT_EQ(takeCalls(), "");
}

}  // namespace
}  // namespace bigdata::lazyeval
