#include "optimizer/graphTables.h"

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "foundation/i18n.h"
#include "kcos/class.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "kx/string.h"
#include "lazyeval/Operation.h"

namespace bigdata::optimizer {

using ki::KalvexManagedPtr;
using lazyeval::Closure;
using lazyeval::ClosureFuture;
using lazyeval::ClosureGraphNode;
using lazyeval::ClosurePromise;
using matrix::ArrayPtr;

namespace {

const std::u16string& nameOf(const ClosureGraphNode& node, NodeNames& names) {
  return std::visit([&](const auto& object) -> const std::u16string& { return names.of(*object); },
                    node);
}

ArrayPtr objectOf(const ClosureGraphNode& node) {
  return std::visit([](const auto& object) { return ki::toArray(object); }, node);
}

std::u16string operationClass(const Closure& closure) {
  const lazyeval::Operation& operation = *closure.getOperation();
  return fl::i18n::to_ustring(operation.selfInterface()->getClassObject()->getName());
}

ArrayPtr makeLogicalColumn(std::size_t rows) {
  return matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{rows, 1}, kxLOGICAL_CLASS));
}

/// Source and target of an edge, by name. The names are stored elsewhere, so that edges are cheap
/// to move.
struct Edge {
  std::u16string_view source, target;

  auto operator<=>(const Edge&) const = default;
};

/// Adds the edges that lead to a node.
struct EdgeCollector {
  NodeNames& names;
  std::vector<Edge>& edges;

  void operator()(const KalvexManagedPtr<Closure>& closure) const {
    for (const auto& input : closure->getInputFutures()) {
      edges.push_back({names.of(*input), names.of(*closure)});
    }
  }
  void operator()(const KalvexManagedPtr<ClosureFuture>& future) const {
    edges.push_back({names.of(*future->getPromise()), names.of(*future)});
  }
  void operator()(const KalvexManagedPtr<ClosurePromise>& promise) const {
    if (!promise->isDone()) {
      edges.push_back({names.of(*promise->getClosure()), names.of(*promise)});
    }
  }
};

std::vector<Edge> collectEdges(const GraphNodes& nodes, NodeNames& names) {
  std::vector<Edge> edges;
  for (const ClosureGraphNode& node : nodes) {
    std::visit(EdgeCollector{names, edges}, node);
  }
  std::ranges::sort(edges);
  edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
  return edges;
}

}  // namespace

ArrayPtr makeNodeTable(const GraphNodes& nodes, NodeNames& names) {
  using namespace Torvane::String;
  const std::size_t count = nodes.size();
  const ArrayPtr labels = createStringArray(count, 1);
  const ArrayPtr objects = matrix::from_kalvex(kxCreateCellMatrix(count, 1));
  const ArrayPtr areClosures = makeLogicalColumn(count);
  const ArrayPtr operations = createStringArray(count, 1);
  for (std::size_t row = 0; row < count; ++row) {
    setString(labels.get(), row, nameOf(nodes[row], names));
    kxSetCell(objects.get(), row, objectOf(nodes[row]).release());
    if (const auto* closure = std::get_if<KalvexManagedPtr<Closure>>(&nodes[row])) {
      static_cast<bool*>(kxGetMutableData(areClosures.get()))[row] = true;
      setString(operations.get(), row, operationClass(**closure));
    }
  }
  const ArrayPtr types = ki::callHost("categorical", {operations.get()});
  const ArrayPtr label = matrix::create("VariableNames");
  const ArrayPtr variables = createStringArray(1, 4);
  std::size_t column = 0;
  for (const auto* variable : {u"Name", u"NodeObj", u"IsClosure", u"OpType"}) {
    setString(variables.get(), column++, variable);
  }
  return ki::callHost("table", {labels.get(), objects.get(), areClosures.get(), types.get(),
                                label.get(), variables.get()});
}

ArrayPtr makeEdgeTable(const GraphNodes& nodes, NodeNames& names) {
  const std::vector<Edge> edges = collectEdges(nodes, names);
  const ArrayPtr ends = Torvane::String::createStringArray(edges.size(), 2);
  for (std::size_t row = 0; row < edges.size(); ++row) {
    Torvane::String::setString(ends.get(), row, edges[row].source);
    Torvane::String::setString(ends.get(), edges.size() + row, edges[row].target);
  }
  const ArrayPtr label = matrix::create("VariableNames");
  const ArrayPtr variable = matrix::create("EndNodes");
  return ki::callHost("table", {ends.get(), label.get(), variable.get()});
}

}  // namespace bigdata::optimizer
