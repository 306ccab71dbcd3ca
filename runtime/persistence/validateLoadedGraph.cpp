#include "persistence/validateLoadedGraph.h"

#include <fmt/core.h>

#include <algorithm>
#include <vector>

#include "persistence/LoadedGraph.h"
#include "plan/Dependencies.h"

namespace kv::runtime {

namespace {

using host::LoadRefusal;
using MaybeRefusal = std::optional<LoadRefusal>;

bool isMissing(std::size_t link) { return link == LoadedGraph::kNothing; }

/// The rules that concern a node and its neighbours.
class GraphRules {
 public:
  explicit GraphRules(const LoadedGraph& graph)
      : graph_(graph), makers_(graph.promises().size(), LoadedGraph::kNothing) {}

  MaybeRefusal check() {
    MaybeRefusal refusal;
    // The makers are known only when all closures have been visited.
    for (std::size_t i = 0; i < graph_.closures().size() && !refusal; ++i) {
      refusal = checkClosure(graph_.closures()[i]);
    }
    for (std::size_t i = 0; i < graph_.promises().size() && !refusal; ++i) {
      refusal = checkPromise(graph_.promises()[i], makers_[i]);
    }
    for (std::size_t i = 0; i < graph_.futures().size() && !refusal; ++i) {
      refusal = checkFuture(graph_.futures()[i]);
    }
    return refusal;
  }

 private:
  MaybeRefusal checkClosure(const LoadedGraph::Closure& closure) {
    if (std::ranges::any_of(graph_.inputsOf(closure), isMissing)) {
      return LoadRefusal{closure.object, "an input of a Closure is missing"};
    }
    if (static_cast<double>(closure.numOutputs) != closure.numOperationOutputs) {
      return LoadRefusal{closure.object,
                         fmt::format("a Closure has {} outputs and its operation {}",
                                     closure.numOutputs, closure.numOperationOutputs)};
    }
    for (const std::size_t output : graph_.outputsOf(closure)) {
      const LoadedGraph::Promise* promise = graph_.promiseAt(output);
      if (promise == nullptr) {
        return LoadRefusal{closure.object, "an output of a Closure is missing"};
      }
      if (MaybeRefusal refusal = takeOutput(closure, *promise)) {
        return refusal;
      }
    }
    return std::nullopt;
  }

  MaybeRefusal takeOutput(const LoadedGraph::Closure& closure,
                          const LoadedGraph::Promise& promise) {
    std::size_t& maker = makers_[static_cast<std::size_t>(&promise - graph_.promises().data())];
    if (!isMissing(maker)) {
      return LoadRefusal{promise.object, maker == closure.object
                                             ? "a ClosurePromise is an output of its closure twice"
                                             : "a ClosurePromise is an output of two closures"};
    }
    maker = closure.object;
    const double outputs = static_cast<double>(closure.numOutputs);
    if (!(promise.outputIndex >= 1 && promise.outputIndex <= outputs)) {
      return LoadRefusal{promise.object,
                         fmt::format("a ClosurePromise is output {} of a Closure with {} outputs",
                                     promise.outputIndex, closure.numOutputs)};
    }
    return std::nullopt;
  }

  MaybeRefusal checkPromise(const LoadedGraph::Promise& promise, std::size_t maker) const {
    if (isMissing(promise.closure)) {
      if (!promise.isDone) {
        return LoadRefusal{promise.object, "a pending ClosurePromise has no closure"};
      }
    } else if (promise.closure != maker) {
      return LoadRefusal{promise.object, "a ClosurePromise isn't an output of its closure"};
    }
    const LoadedGraph::Future* future = graph_.futureAt(promise.future);
    if (future == nullptr || future->promise != promise.object) {
      return LoadRefusal{promise.object, "the future of a ClosurePromise is that of another"};
    }
    return std::nullopt;
  }

  MaybeRefusal checkFuture(const LoadedGraph::Future& future) const {
    const LoadedGraph::Promise* promise = graph_.promiseAt(future.promise);
    if (promise == nullptr || promise->future != future.object) {
      return LoadRefusal{future.object, "the promise of a ClosureFuture has another future"};
    }
    return std::nullopt;
  }

  const LoadedGraph& graph_;
  std::vector<std::size_t> makers_;  ///< of each promise: the closure of which it is an output
};

/// Which closures need which others, by their numbers in the graph.
Dependencies dependenciesIn(const LoadedGraph& graph) {
  Dependencies dependencies;
  for (const LoadedGraph::Closure& closure : graph.closures()) {
    dependencies.addNode();
    for (const std::size_t input : graph.inputsOf(closure)) {
      const auto* future = graph.futureAt(input);
      const auto* promise = future == nullptr ? nullptr : graph.promiseAt(future->promise);
      const auto* maker = promise == nullptr ? nullptr : graph.closureAt(promise->closure);
      if (maker != nullptr) {
        dependencies.addNeed(static_cast<std::size_t>(maker - graph.closures().data()));
      }
    }
  }
  return dependencies;
}

}  // namespace

MaybeRefusal validateLoadedGraph(std::span<const kxArray* const> objects) {
  LoadedGraph graph;
  if (MaybeRefusal refusal = graph.read(objects)) {
    return refusal;
  }
  if (MaybeRefusal refusal = GraphRules(graph).check()) {
    return refusal;
  }
  if (const auto onCycle = measureNesting(dependenciesIn(graph)).onCycle) {
    return LoadRefusal{graph.closures()[*onCycle].object, "a Closure depends on itself"};
  }
  return std::nullopt;
}

}  // namespace kv::runtime
