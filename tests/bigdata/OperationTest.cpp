#include "lazyeval/Operation.h"

#include <algorithm>
#include <limits>

#include "FunctionHandle.h"
#include "LazySession.h"
#include "PartitionedArrayOptions.h"
#include "ki/createManagedObject.h"
#include "lazyeval/ElementwiseOperation.h"
#include "lazyeval/operationArguments.h"

namespace bigdata::lazyeval {

namespace {

constexpr auto kOperationClass = "kalvex.bigdata.internal.lazyeval.Operation";
constexpr auto kFusableClass = "kalvex.bigdata.internal.lazyeval.SlicewiseFusableOperation";
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class OperationTest : public LazySession {
 protected:
  OperationTest() {
    stub("RandStream.getGlobalStream",
         [](const Call& c) { c.out(0, kv::host::makeString("own")); });
    stub("getRandStreamForPartition",
         [](const Call& c) { c.out(0, kv::host::makeString("partition's")); });
    stub("RandStream.setGlobalStream");
  }

  Value elementwise(double maxNumSlices, bool requiresRandState) {
    auto options = ki::createManagedObject<PartitionedArrayOptions>();
    options->setRequiresRandState(requiresRandState);
    options->setRandStreamFactory(kv::host::makeString("factory"));
    auto handle = ki::createManagedObject<FunctionHandle>(plus(), Value(), maxNumSlices);
    return ki::toArray(ki::createManagedObject<ElementwiseOperation>(options, handle, 2u, 1u));
  }

  std::vector<Value> invokeMany(const Value& object, std::string_view method, int nlhs,
                                const std::vector<const kxArray*>& inputs = {}) {
    return session.invoke(object.get(), method, nlhs, inputs);
  }

  /// A language class derived from SlicewiseFusableOperation, with these methods.
  Value fusable(std::vector<kv::host::MethodDefinition> methods) {
    auto definition = std::make_shared<kv::host::ClassDefinition>();
    definition->name = "TestFusable";
    definition->superclasses = {kFusableClass};
    definition->methods = std::move(methods);
    for (const auto name :
         {"createExecutionTasks", "isSlicewiseFusable", "getCheckedFunctionHandle"}) {
      const bool isGiven = std::ranges::any_of(
          definition->methods, [&](const auto& method) { return method.name == name; });
      if (!isGiven) {
        definition->methods.push_back(
            {.name = name, .body = [this, name](const Call& c) { note(name, c); }});
      }
    }
    session.defineClass(definition);
    return callWith("TestFusable", {});
  }
};

TEST_F(OperationTest, BoundAndRandomStateDecideOnFusingAndDirectEvaluation) {
  struct Case {
    double maxNumSlices;
    bool requiresRandState, isDirect, isFusable;
  };
  for (const Case& c : {Case{kInfinity, false, true, true}, Case{-kInfinity, false, true, true},
                        Case{100, false, false, false}, Case{1e300, false, false, false},
                        Case{kInfinity, true, true, false}}) {
    const Value operation = elementwise(c.maxNumSlices, c.requiresRandState);
    calls.clear();
    EXPECT_EQ(getFlag(operation, "SupportsDirectEvaluation"), c.isDirect);
    EXPECT_EQ(kv::host::toLogical(invokeMany(operation, "isSlicewiseFusable", 1)[0].get()),
              c.isFusable);
    EXPECT_EQ(takeCalls(), c.requiresRandState ? "" : "getCheckedFunctionHandle");
    EXPECT_TRUE(getFlag(operation, "SupportsPreview"));
    EXPECT_FALSE(getFlag(operation, "DependsOnOnlyHead"));
  }
}

TEST_F(OperationTest, DirectEvaluationBringsTheStreamOfPartitionOne) {
  const Value operation = elementwise(kInfinity, true);
  const Value x = kv::host::makeDouble(1);
  calls.clear();
  invokeMany(operation, "directEvaluate", 1, {x.get(), x.get()});
  EXPECT_EQ(takeTrace(),
            "getGlobalStream() getRandStreamForPartition(factory 1) setGlobalStream(partition's) "
            "directEvaluateImpl(ElementwiseOperation 1 1) setGlobalStream(own)");

  invokeMany(elementwise(kInfinity, false), "directEvaluate", 1, {x.get(), x.get()});
  EXPECT_EQ(takeCalls(), "directEvaluateImpl");

  stub("getRandStreamForPartition", [](const Call&) { kv::host::raise("KALVEX:OutOfMemory"); });
  EXPECT_EQ(errorOf([&] { invokeMany(operation, "directEvaluate", 1); }), "KALVEX:OutOfMemory");
  EXPECT_EQ(takeTrace(),
            "getGlobalStream() getRandStreamForPartition(factory 1) "
            "setGlobalStream(own)");
}

TEST_F(OperationTest, GlobalStateWrapsAFactoryOnlyWhereItIsAskedFor) {
  stub("kalvex.bigdata.internal.lazyeval.GlobalStateProcessorFactory",
       [](const Call& c) { c.out(0, kv::host::makeString("wrapped")); });
  const Value factory = kv::host::makeString("factory");
  const auto added = [&](const Value& operation) {
    return kv::host::toText(invokeMany(operation, "addGlobalState", 1, {factory.get()})[0].get());
  };
  EXPECT_EQ(added(ki::toArray(this->operation(1, 1))), "factory");
  EXPECT_EQ(added(elementwise(kInfinity, false)), "factory");
  EXPECT_EQ(added(elementwise(kInfinity, true)), "wrapped");
  EXPECT_THAT(takeTrace(),
              ::testing::EndsWith("GlobalStateProcessorFactory(factory PartitionedArrayOptions)"));
}

TEST_F(OperationTest, TheStreamComesBackAfterAFailureAndItsOwnFailureIsSilent) {
  const Value operation = elementwise(kInfinity, true);
  auto failing = std::make_shared<kv::host::ClassCompletion>();
  failing->name = "kalvex.bigdata.internal.lazyeval.ElementwiseOperation";
  failing->methods.push_back({.name = "directEvaluateImpl",
                              .body = [](const Call&) { kv::host::raise("KALVEX:OutOfMemory"); },
                              .access = kcos::MemberAccess::Protected});
  session.completeClass(failing);
  int numSet = 0;
  stub("RandStream.setGlobalStream", [&](const Call&) {
    if (++numSet == 2) kv::host::raise("KALVEX:session:Closed");
  });
  EXPECT_EQ(errorOf([&] { invokeMany(operation, "directEvaluate", 1); }), "KALVEX:OutOfMemory");
  EXPECT_EQ(numSet, 2);
}

TEST_F(OperationTest, ALanguageClassIsCalledBackWithItselfInFront) {
  const Value operation = ki::toArray(this->operation(2, 1));
  const Value a = kv::host::makeDouble(1);
  const Value b = kv::host::makeDouble(2);
  calls.clear();
  const auto results =
      invokeMany(operation, "directEvaluate", 1, {a.get(), b.get(), b.get(), a.get()});
  EXPECT_EQ(kv::host::toDouble(results.at(0).get()), 42);
  EXPECT_TRUE(kxIsSameValue(calls.at(0).inputs.at(0).get(), operation.get()));
  EXPECT_EQ(takeTrace(), "directEvaluateImpl(TestOperation 1 2 2 1)");
}

TEST_F(OperationTest, AFusableLanguageClassRefusesDirectEvaluation) {
  const Value operation = fusable({{.name = "directEvaluateImpl", .body = [](const Call&) {}}});
  EXPECT_EQ(errorOf([&] { invokeMany(operation, "directEvaluate", 1); }),
            internalError("TestFusabledoes not support direct evaluation."));
}

TEST_F(OperationTest, TheDefaultRuleOfALanguageClassWantsAFunctionHandleObject) {
  Value answer = ki::toArray(ki::createManagedObject<FunctionHandle>(plus()));
  const Value operation = fusable({{.name = "getCheckedFunctionHandle", .body = [&](const Call& c) {
                                      c.out(0, matrix::sharedCopy(answer.get()));
                                    }}});
  const auto ask = [&] { return invokeMany(operation, "isSlicewiseFusableDefault", 1); };
  EXPECT_TRUE(kv::host::toLogical(ask()[0].get()));
  answer = plus();
  EXPECT_EQ(errorOf(ask),
            "KALVEX:validateattributes:invalidType | Input | scalar "
            "kalvex.bigdata.internal.FunctionHandle | function_handle");
  answer = nullptr;
  EXPECT_EQ(errorOf(ask), "KALVEX:class:InvalidHandle");
}

TEST_F(OperationTest, ConstructorsCheckCountsThenConvertFromTheLast) {
  const Value two = kv::host::makeDouble(2);
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

TEST_F(OperationTest, CountsAloneGiveDefaultFlags) {
  const Value operation = ki::toArray(this->operation(2, 3));
  EXPECT_EQ(getDouble(operation, "NumInputs"), 2);
  EXPECT_EQ(getDouble(operation, "NumOutputs"), 3);
  for (const auto flag : {"SupportsPreview", "DependsOnOnlyHead", "SupportsDirectEvaluation"}) {
    EXPECT_FALSE(getFlag(operation, flag)) << flag;
  }
  EXPECT_EQ(errorOf([&] { get(operation, "Options"); }),
            std::string("KALVEX:class:AccessDenied | ") + kOperationClass + " | Options");
}

}  // namespace

}  // namespace bigdata::lazyeval
