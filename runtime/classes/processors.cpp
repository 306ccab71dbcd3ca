// The core describes a composite processor as a graph of builder objects, in which ids may repeat
// and edges name what they connect. Here it gets the methods that the core leaves to its host. Our
// own passes need no such objects: the driver makes a stage of the steps of a plan.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "driver/OpSpecValue.h"
#include "kv/host/errors.h"
#include "plan/Dependencies.h"
#include "values/hostNames.h"
#include "values/objects.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// The graph of a composite processor, as its builders describe it.
struct BuilderGraph {
  std::vector<Value> builders;
  Dependencies inputs;  ///< of each builder, in the processor's order
};

/// Reads the builders that findAllBuilders found. The edges of findAllDependencies call them by id,
/// which two of them may share.
BuilderGraph readGraph(const kxArray* builders) {
  BuilderGraph graph;
  const ObjectNumbers numbers(builders);
  for (std::size_t i = 0; i < kxGetNumberOfElements(builders); ++i) {
    graph.builders.push_back(elementOf(builders, i));
    graph.inputs.addNode();
    const Value inputs = host::getProperty(graph.builders.back().get(), "InputBuilders");
    for (std::size_t k = 0; k < kxGetNumberOfElements(inputs.get()); ++k) {
      const auto input = numbers.of(kcos::omGetArrayElement(inputs.get(), k).get());
      if (!input) {
        host::raise("KALVEX:array:NotInGraph", {"builder"});
      }
      graph.inputs.addNeed(*input);
    }
  }
  return graph;
}

/// An order of the builders in which each comes after its inputs; the root, builder 0, is last.
/// Errors: an internal error for a builder that is among its own inputs.
std::vector<std::size_t> inputsFirst(const BuilderGraph& graph) {
  DependencyOrder order = orderFrom(graph.inputs, 0);
  if (order.onCycle) {
    host::raise("KALVEX:bigdata:array:InternalError", {"A builder is among its own inputs"});
  }
  return std::move(order.nodes);
}

/// The factory of a builder's processor.
/// Errors: "KALVEX:array:NotRunnable" with what an operation is that doesn't run over rows.
Value factoryOf(const kxArray* builder) {
  Value factory = host::getProperty(builder, "DataProcessorFactory");
  const OpSpec& spec = *host::nativeValue<OpSpecValue>(factory.get(), kSpecFactory).spec;
  if (spec.op == nullptr) {
    host::raise("KALVEX:array:NotRunnable", {spec.label});
  }
  return factory;
}

/// buildUnderlyingProcessor(builder): the factories of all inner builders that it needs, in an
/// order in which each comes after its inputs.
void buildUnderlyingProcessor(const Call& call) {
  constexpr std::size_t kRoot = 0;
  const Value builders = host::call("findAllBuilders", {call.in(0)});
  const BuilderGraph graph = readGraph(builders.get());
  std::vector<Value> factories;
  for (const std::size_t number : inputsFirst(graph)) {
    const kxArray* builder = graph.builders[number].get();
    const bool isInput = host::toLogical(host::getProperty(builder, "IsGlobalInput").get());
    if (number != kRoot && !isInput) {
      factories.push_back(factoryOf(builder));
    }
  }
  Value composite = host::call(kCompositeGraph, {});
  host::setSlot(composite.get(), "Factories", host::makeCell(std::move(factories)));
  call.out(0, std::move(composite));
}

/// buildGraph(builder): keeps what was built in Graph, so that it is built once.
void buildGraph(const Call& call) {
  Value graph = host::getSlot(call.in(0), "Graph");
  if (kxIsEmpty(graph.get())) {
    graph = host::call("buildUnderlyingProcessor", {call.in(0)});
    host::setSlot(call.in(0), "Graph", matrix::sharedCopy(graph.get()));
  }
  call.out(0, std::move(graph));
}

/// feval(builder): the composite processor.
void fevalBuilder(const Call& call) { call.out(0, host::call("buildGraph", {call.in(0)})); }

/// getAllInputIds(builder): ids of the global inputs that have one, in the order of the walk.
void getAllInputIds(const Call& call) {
  const Value builders = host::call("findAllBuilders", {call.in(0)});
  std::vector<std::string> ids;
  for (std::size_t i = 0; i < kxGetNumberOfElements(builders.get()); ++i) {
    const Value builder = elementOf(builders.get(), i);
    std::string id = host::toText(host::getProperty(builder.get(), "InputId").get());
    if (!id.empty()) {
      ids.push_back(std::move(id));
    }
  }
  call.out(0, host::makeStringColumn(ids));
}

/// SpecProcessorFactory(function, reduction, stack)
void constructFactory(const Call& call) {
  host::setSlot(call.in(0), "FunctionHandle", matrix::sharedCopy(call.in(1)));
  host::setSlot(call.in(0), "ReduceHandle", matrix::sharedCopy(call.in(2)));
  host::setSlot(call.in(0), "SubmissionStack", matrix::sharedCopy(call.in(3)));
}

/// GlobalStateProcessorFactory(factory, options): does what `factory` does, with a random stream of
/// its own for each partition.
void constructGlobalStateFactory(const Call& call) {
  const kxArray* factory = call.in(1);
  if (kxIsA(factory, kSpecFactory)) {
    const Value function = host::getProperty(factory, "FunctionHandle");
    const Value reduction = host::getProperty(factory, "ReduceHandle");
    const Value stack = host::getProperty(factory, "SubmissionStack");
    host::constructSuperclass(call.in(0), kSpecFactory,
                              {function.get(), reduction.get(), stack.get()});
    const auto& spec = host::nativeValue<OpSpecValue>(factory, kSpecFactory).spec;
    host::setNativeValue(call.in(0), std::make_unique<OpSpecValue>(spec));
  } else {
    host::constructSuperclass(call.in(0), kSpecFactory, {factory});
  }
  host::setSlot(call.in(0), "Options", matrix::sharedCopy(call.in(2)));
}

host::MethodDefinition privateMethod(std::string name, host::NativeBody body) {
  host::MethodDefinition definition = method(std::move(name), std::move(body), 1, 1);
  definition.access = host::MemberAccess::Private;
  return definition;
}

}  // namespace

void defineProcessors(host::Session& session) {
  define(session, {.name = kProcessorFactory, .methods = {abstractMethod("feval")}});
  define(session,
         {.name = kSpecFactory,
          .superclasses = {kProcessorFactory},
          .properties = {readOnly("FunctionHandle"), readOnly("ReduceHandle"),
                         readOnly("SubmissionStack")},
          .constructor = constructor(constructFactory, 1, 4),
          .methods = {method(
              "feval", [](const Call& call) { call.out(0, matrix::sharedCopy(call.in(0))); }, 1,
              -1)}});
  define(session, {.name = kGlobalStateFactory,
                   .superclasses = {kSpecFactory},
                   .properties = {readOnly("Options")},
                   .constructor = constructor(constructGlobalStateFactory, 3, 3)});
  define(session, {.name = kCompositeGraph, .properties = {readOnly("Factories")}});
  complete(session, kProcessorBuilder,
           {method("feval", fevalBuilder, 1, -1), privateMethod("getAllInputIds", getAllInputIds),
            privateMethod("buildGraph", buildGraph),
            privateMethod("buildUnderlyingProcessor", buildUnderlyingProcessor)});
}

}  // namespace kv::runtime
