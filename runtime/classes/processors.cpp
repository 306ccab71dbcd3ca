#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "driver/StageValue.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

using host::Call;
using host::Value;

Value builderAt(const kxArray* builders, std::size_t index) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(builders, index)));
}

/// The graph behind a composite processor, as its builders tell it.
struct BuilderGraph {
  std::vector<Value> builders;
  std::vector<std::vector<std::size_t>> inputs;  ///< of each builder, in the processor's order
};

/// Reads the builders that findAllBuilders found. The edges of findAllDependencies call them by id,
/// which two of them may share.
BuilderGraph readGraph(const kxArray* builders) {
  BuilderGraph graph;
  std::unordered_map<const kcos::COSInterface*, std::size_t> indexOf;
  for (std::size_t i = 0; i < kxGetNumberOfElements(builders); ++i) {
    graph.builders.push_back(builderAt(builders, i));
    indexOf.emplace(kcos::omGetArrayElement(builders, i).get(), i);
  }
  for (const Value& builder : graph.builders) {
    const Value inputs = host::getProperty(builder.get(), "InputBuilders");
    std::vector<std::size_t>& indices = graph.inputs.emplace_back();
    for (std::size_t i = 0; i < kxGetNumberOfElements(inputs.get()); ++i) {
      const auto found = indexOf.find(kcos::omGetArrayElement(inputs.get(), i).get());
      if (found == indexOf.end()) {
        host::raise("KALVEX:array:NotInGraph", {"builder"});
      }
      indices.push_back(found->second);
    }
  }
  return graph;
}

/// An order of the builders in which each stands behind its inputs; the root, builder 0, is last.
/// Errors: an internal error for a builder that is among its own inputs.
std::vector<std::size_t> inputsFirst(const BuilderGraph& graph) {
  std::vector<std::size_t> order;
  std::vector<bool> begun(graph.builders.size(), false);
  std::vector<bool> done(graph.builders.size(), false);
  std::vector<std::pair<std::size_t, std::size_t>> stack{{0, 0}};  // builder, next input to look at
  begun[0] = true;
  while (!stack.empty()) {
    auto& [builder, next] = stack.back();
    if (next < graph.inputs[builder].size()) {
      const std::size_t input = graph.inputs[builder][next++];
      if (begun[input] && !done[input]) {
        host::raise("KALVEX:bigdata:array:InternalError", {"A builder is among its own inputs"});
      }
      if (!begun[input]) {
        begun[input] = true;
        stack.emplace_back(input, 0);
      }
      continue;
    }
    done[builder] = true;
    order.push_back(builder);
    stack.pop_back();
  }
  return order;
}

std::shared_ptr<const OpSpec> specOf(const kxArray* builder) {
  if (host::toLogical(host::getProperty(builder, "IsGlobalInput").get())) {
    auto spec = std::make_shared<OpSpec>();
    spec->kind = OpKind::Input;
    spec->label = "input";
    spec->index =
        static_cast<std::size_t>(kxGetScalar(host::getProperty(builder, "InputOrdinal").get()));
    return spec;
  }
  const Value factory = host::getProperty(builder, "DataProcessorFactory");
  return host::nativeValue<OpSpecValue>(factory.get(), kSpecFactory).spec;
}

/// The stage of a graph, and the factories of its steps.
struct Lowered {
  Stage stage;
  std::vector<Value> factories;
};

Lowered lower(const BuilderGraph& graph) {
  const std::vector<std::size_t> order = inputsFirst(graph);
  std::vector<std::size_t> stepOf(graph.builders.size());
  std::vector<StageStep> steps;
  std::vector<Value> factories;
  for (const std::size_t builder : order) {
    stepOf[builder] = steps.size();
    StageStep step{specOf(graph.builders[builder].get()), {}};
    for (const std::size_t input : graph.inputs[builder]) {
      step.inputs.push_back(stepOf[input]);
    }
    steps.push_back(std::move(step));
    factories.push_back(host::getProperty(graph.builders[builder].get(), "DataProcessorFactory"));
  }
  return {Stage(std::move(steps)), std::move(factories)};
}

/// buildUnderlyingProcessor(builder): the stage, made from all builders that it needs.
void buildUnderlyingProcessor(const Call& call) {
  const Value builders = host::call("findAllBuilders", {call.in(0)});
  Lowered lowered = lower(readGraph(builders.get()));
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
    const Value builder = builderAt(builders.get(), i);
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
