#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "driver/OpSpecValue.h"
#include "driver/StageValue.h"
#include "kv/host/errors.h"
#include "plan/Dependencies.h"
#include "values/hostNames.h"
#include "values/objects.h"

// The core describes a stage as a graph of builder objects, in which ids may repeat and edges name
// what they connect. It is translated in two steps: into numbers of nodes, by identity, then into
// the engine's links, in an order in which inputs come first. Builders that only pass something on
// (the global inputs, selections of one output) become links and cost nothing when the stage runs.

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

/// The stage of a graph, and the factories of its steps.
struct Lowered {
  Stage stage;
  std::vector<Value> factories;
};

/// Makes steps of builders. A global input becomes an input of the stage, and a builder that
/// selects an output becomes a link to it; the inputs of the root are what the stage gives.
class Lowering {
 public:
  explicit Lowering(const BuilderGraph& graph) : graph_(graph), linkOf_(graph.builders.size()) {}

  Lowered lower() {
    for (const std::size_t builder : inputsFirst(graph_)) {
      if (builder != kRoot) {
        lower(builder);
      }
    }
    std::vector<std::size_t> outputs;
    for (const StepLink& link : inputsOf(kRoot)) {
      outputs.push_back(link.index);
    }
    return {Stage(std::move(steps_), std::move(outputs)), std::move(factories_)};
  }

 private:
  static constexpr std::size_t kRoot = 0;

  void lower(std::size_t builder) {
    const kxArray* object = graph_.builders[builder].get();
    if (host::toLogical(host::getProperty(object, "IsGlobalInput").get())) {
      const double ordinal = kxGetScalar(host::getProperty(object, "InputOrdinal").get());
      linkOf_[builder] = {.isStageInput = true, .index = static_cast<std::size_t>(ordinal) - 1};
      return;
    }
    Value factory = host::getProperty(object, "DataProcessorFactory");
    const OpSpec& spec = *host::nativeValue<OpSpecValue>(factory.get(), kSpecFactory).spec;
    if (spec.selects) {
      linkOf_[builder] = inputsOf(builder).at(0);
      linkOf_[builder].output = *spec.selects;
      return;
    }
    if (spec.op == nullptr) {
      host::raise("KALVEX:array:NotRunnable", {spec.label});
    }
    linkOf_[builder] = {.index = steps_.size()};
    steps_.push_back({spec.op, inputsOf(builder), spec.numOutputs, spec.label, spec.origin});
    factories_.push_back(std::move(factory));
  }

  std::vector<StepLink> inputsOf(std::size_t builder) const {
    std::vector<StepLink> links;
    for (const std::size_t input : graph_.inputs.needsOf(builder)) {
      links.push_back(linkOf_[input]);
    }
    return links;
  }

  const BuilderGraph& graph_;
  std::vector<StepLink> linkOf_;  ///< what each builder's result is
  std::vector<Step> steps_;
  std::vector<Value> factories_;
};

/// buildUnderlyingProcessor(builder): the stage, made from all builders that it needs.
void buildUnderlyingProcessor(const Call& call) {
  const Value builders = host::call("findAllBuilders", {call.in(0)});
  const BuilderGraph graph = readGraph(builders.get());
  Lowered lowered = Lowering(graph).lower();
  Value composite = host::call(kCompositeGraph, {});
  host::setSlot(composite.get(), "Factories", host::makeCell(std::move(lowered.factories)));
  host::setNativeValue(composite.get(), std::make_unique<StageValue>(std::move(lowered.stage)));
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
