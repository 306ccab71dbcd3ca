#include <limits>
#include <utility>

#include "FunctionHandle.h"
#include "LazySession.h"
#include "PartitionedArrayOptions.h"
#include "kcos/calls.h"
#include "ki/createManagedObject.h"
#include "lazyeval/ElementwiseOperation.h"
#include "lazyeval/SlicewiseOperation.h"

namespace {

/// The calls of methods by class and name, each as "method/inputs", with "!" if the last flag is
/// true.
std::string methodCalls;

}  // namespace

using Name = kcos::COSInternedBase;

// The build links this program with `--wrap` for the operation.
bool realCallMethod(Name className, Name method, const kcos::COSClient* client, int nlhs,
                    kxArray** plhs, int nrhs, const kxArray* const* prhs, bool last)  //
    asm("__real__ZN4kcos12omCallMethodENS_15COSInternedBaseES0_PKNS_9COSClientEiPP7kxArrayiPKPKS4_"
        "b");
bool recordCallMethod(Name className, Name method, const kcos::COSClient* client, int nlhs,
                      kxArray** plhs, int nrhs, const kxArray* const* prhs, bool last)  //
    asm("__wrap__ZN4kcos12omCallMethodENS_15COSInternedBaseES0_PKNS_9COSClientEiPP7kxArrayiPKPKS4_"
        "b");
bool recordCallMethod(Name className, Name method, const kcos::COSClient* client, int nlhs,
                      kxArray** plhs, int nrhs, const kxArray* const* prhs, bool last) {
  methodCalls += (methodCalls.empty() ? "" : " ") + std::string(method.text()) + "/" +
                 std::to_string(nrhs) + (last ? "!" : "");
  return realCallMethod(className, method, client, nlhs, plhs, nrhs, prhs, last);
}

namespace bigdata::lazyeval {

namespace {

using kv::host::makeDouble;
using kv::host::makeString;

constexpr auto kFusableClass = "kalvex.bigdata.internal.lazyeval.SlicewiseFusableOperation";

/// The calls that native code makes to objects of the host by class and name.
class MethodCalls : public LazySession {
 protected:
  MethodCalls() { methodCalls.clear(); }

  template <class Kind>
  static OperationPtr native() {
    return ki::createManagedObject<Kind>(
        ki::createManagedObject<PartitionedArrayOptions>(),
        ki::createManagedObject<FunctionHandle>(kv::host::makeFunctionHandle("plus")), 1u, 1u);
  }

  /// An object of a new class that derives from SlicewiseFusableOperation.
  OperationPtr fusable(const std::string& name, std::vector<kv::host::MethodDefinition> methods) {
    auto definition = std::make_shared<kv::host::ClassDefinition>();
    definition->name = name;
    definition->superclasses = {kFusableClass};
    definition->methods = std::move(methods);
    session.defineClass(definition);
    return ki::fromArray<OperationPtr>(session.loadInstance(name, {}).get());
  }

  kv::host::MethodDefinition noting(const std::string& name, Value answer = nullptr) {
    auto shared = std::make_shared<Value>(std::move(answer));
    return {.name = name, .body = [this, name, shared](const Call& c) {
              note(name, c);
              c.out(0, matrix::sharedCopy(shared->get()));
            }};
  }

  void complete(const std::string& name) {
    auto completion = std::make_shared<kv::host::ClassCompletion>();
    completion->name = "kalvex.bigdata.internal.lazyeval." + name;
    completion->methods = {noting("createExecutionTasks", makeString("tasks"))};
    session.completeClass(completion);
  }
};

TEST_F(MethodCalls, OnlyThePlannerSetsTheLastFlag) {
  const Value closures = ki::toArray(std::vector{closure({})});
  callWith("kalvex.bigdata.internal.lazyeval.LazyTaskGraph", {closures.get()});
  EXPECT_EQ(std::exchange(methodCalls, ""), "createExecutionTasks/4!");

  const Value one = makeDouble(1), elementwise = ki::toArray(native<ElementwiseOperation>());
  invoke(elementwise, "directEvaluate", one);
  invoke(ki::toArray(operation(1, 1)), "directEvaluate", one);
  EXPECT_EQ(std::exchange(methodCalls, ""), "directEvaluateImpl/2 directEvaluateImpl/2");
}

/// By an ordinary call with the object as first input, whatever kind of operation it is.
TEST_F(MethodCalls, EachKindOfOperationCreatesItsTasksByItsOwnMethod) {
  const Value first = makeString("first"), second = makeDouble(2);
  const auto created = [&](const OperationPtr& operation) {
    return errorOf([&] {
      EXPECT_EQ(kv::host::toText(operation->createExecutionTasks(first.get(), second.get()).get()),
                "tasks");
    });
  };
  for (const bool isComplete : {false, true}) {
    for (const OperationPtr& operation :
         {native<ElementwiseOperation>(), native<SlicewiseOperation>()}) {
      EXPECT_EQ(created(operation).substr(0, 24),
                isComplete ? "no error" : "KALVEX:UndefinedFunction");
    }
    complete("ElementwiseOperation");
    complete("SlicewiseOperation");
  }
  EXPECT_EQ(created(fusable("Fusable", {noting("createExecutionTasks", makeString("tasks"))})),
            "no error");
  auto own = std::make_shared<kv::host::ClassDefinition>();
  own->name = "OwnOperation";
  own->superclasses = {"kalvex.bigdata.internal.lazyeval.Operation"};
  own->methods = {noting("createExecutionTasks", makeString("tasks"))};
  session.defineClass(own);
  EXPECT_EQ(created(ki::fromArray<OperationPtr>(session.loadInstance("OwnOperation", {}).get())),
            "no error");
  EXPECT_EQ(takeTrace(),
            "createExecutionTasks(ElementwiseOperation first 2) "
            "createExecutionTasks(SlicewiseOperation first 2) "
            "createExecutionTasks(Fusable first 2) createExecutionTasks(OwnOperation first 2)");
  EXPECT_EQ(methodCalls, "");
}

TEST_F(MethodCalls, ALanguageClassAnswersWhetherItCanBeFused) {
  const auto ask = [](const OperationPtr& operation) {
    return dynamic_cast<const SlicewiseFusableOperation&>(*operation).isSlicewiseFusable();
  };
  for (const bool answer : {false, true}) {
    const std::string name = answer ? "Fusable" : "Unfusable";
    EXPECT_EQ(ask(fusable(name, {noting("isSlicewiseFusable", kv::host::makeLogical(answer))})),
              answer);
    EXPECT_EQ(takeTrace(), "isSlicewiseFusable(" + name + ")");
  }
  EXPECT_EQ(
      errorOf([&] { ask(fusable("Wrong", {noting("isSlicewiseFusable", makeString("no"))})); }),
      "KALVEX:validateattributes:invalidType | Input | scalar logical | ");
  methodCalls.clear();
  EXPECT_EQ(errorOf([&] { ask(fusable("Without", {})); }),
            internalError("Could not find method Without/isSlicewiseFusable"));
  EXPECT_EQ(methodCalls, "isSlicewiseFusable/1");
}

TEST_F(MethodCalls, TheDefaultRuleOfALanguageClassWantsAFunctionHandleObject) {
  const auto ask = [this](const std::string& name, Value answer) {
    std::vector<kv::host::MethodDefinition> methods;
    methods.push_back(noting("getCheckedFunctionHandle", std::move(answer)));
    methods.push_back(noting("directEvaluateImpl"));
    const Value made = ki::toArray(fusable(name, std::move(methods)));
    EXPECT_EQ(errorOf([&] { invoke(made, "directEvaluate"); }),
              internalError(name + "does not support direct evaluation."));
    return errorOf(
        [&] { EXPECT_TRUE(kv::host::toLogical(invoke(made, "isSlicewiseFusableDefault").get())); });
  };
  EXPECT_EQ(ask("Wrapped", ki::toArray(ki::createManagedObject<FunctionHandle>(plus()))),
            "no error");
  EXPECT_EQ(ask("Bare", plus()),
            "KALVEX:validateattributes:invalidType | Input | scalar "
            "kalvex.bigdata.internal.FunctionHandle | function_handle");
  EXPECT_EQ(ask("Nothing", nullptr), "KALVEX:class:InvalidHandle");
}

}  // namespace
}  // namespace bigdata::lazyeval
