// The core returns its graph as tables of names and objects. Here they become plain values with
// indices, so that callers need no host value. Arrays are found by object and not by name, because
// a saved and reopened array has the ids of its original.

#include "kv/lazyGraph.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "handles.h"

namespace kv {

namespace {

constexpr char kClosure[] = "kalvex.bigdata.internal.lazyeval.Closure";
constexpr char kRead[] = "kalvex.bigdata.internal.lazyeval.ReadOperation";
constexpr std::string_view kPromise = "kalvex.bigdata.internal.lazyeval.ClosurePromise";

host::Value columnOf(const host::Value& graph, kcos::NameRef table, std::string_view column) {
  const host::Value rows = host::getProperty(graph.get(), table);
  const host::Value name = host::makeString(column);
  return host::call("column", {rows.get(), name.get()});
}

LazyGraph::Kind kindOf(std::string_view className) {
  if (className == kClosure) {
    return LazyGraph::Kind::Closure;
  }
  return className == kPromise ? LazyGraph::Kind::Promise : LazyGraph::Kind::Future;
}

StackFrame placeOf(const kxArray* stack) {
  if (kxGetClassID(stack) != kxSTRUCT_CLASS || kxIsEmpty(stack)) {
    return {};
  }
  return {host::toText(kxGetField(stack, 0, "file")), host::toText(kxGetField(stack, 0, "name")),
          static_cast<int>(host::toDouble(kxGetField(stack, 0, "line")))};
}

LazyGraph::Node nodeOf(const std::string& name, const kxArray* object) {
  LazyGraph::Node node{name, kindOf(kxGetClassName(object)), {}, {}};
  if (node.kind != LazyGraph::Kind::Closure) {
    return node;
  }
  const host::Value operation = host::getProperty(object, "Operation");
  node.operation = kxGetClassName(operation.get());
  node.place = placeOf(host::getProperty(operation.get(), "Stack").get());
  return node;
}

const kcos::COSInterface* objectIn(const kxArray* scalar) {
  return kcos::omGetArrayElement(scalar, 0).get();
}

LazyGraph read(const host::Value& graph, std::span<const Array> arrays) {
  LazyGraph read;
  std::map<std::string, std::size_t> numbers;
  std::map<const kcos::COSInterface*, std::size_t> numberOf;
  const host::Value objects = columnOf(graph, "Nodes", "NodeObj");
  for (const std::string& name : host::toTexts(columnOf(graph, "Nodes", "Name").get())) {
    const std::size_t number = read.nodes.size();
    numbers.emplace(name, number);
    numberOf.emplace(objectIn(kxGetCell(objects.get(), number)), number);
    read.nodes.push_back(nodeOf(name, kxGetCell(objects.get(), number)));
  }
  // Column by column: all sources, then all targets.
  const auto ends = host::toTexts(columnOf(graph, "Edges", "EndNodes").get());
  const std::size_t count = ends.size() / 2;
  for (std::size_t i = 0; i < count; ++i) {
    read.edges.push_back({numbers.at(ends[i]), numbers.at(ends[count + i])});
  }
  std::ranges::sort(read.edges, {}, [](const auto& edge) { return std::pair(edge.from, edge.to); });
  for (const Array& array : arrays) {
    const host::Value future = host::getProperty(array.handle().value.get(), "ValueFuture");
    read.results.push_back(numberOf.at(objectIn(future.get())));
  }
  return read;
}

host::Value graphOf(std::span<const Array> arrays) {
  CallInputs inputs;
  for (const Array& array : arrays) {
    inputs.lend(array.handle().value);
  }
  const host::Value shown =
      host::call("kalvex.bigdata.internal.optimizer.ClosureGraph", inputs.list());
  return host::getProperty(shown.get(), "Graph");
}

/// What a node of the graph reads; null unless it is a closure that reads.
host::Value sourceOf(const kxArray* node) {
  if (!kxIsA(node, kClosure)) {
    return nullptr;
  }
  const host::Value operation = host::getProperty(node, "Operation");
  return kxIsA(operation.get(), kRead) ? host::getProperty(operation.get(), "Datastore") : nullptr;
}

std::vector<std::string> filesOf(const kxArray* source) {
  return host::toTexts(host::getProperty(source, "Files").get());
}

/// The files or, of rows in memory, their name.
std::vector<std::string> namesOf(const kxArray* source) {
  std::vector<std::string> files = filesOf(source);
  if (!files.empty()) {
    return files;
  }
  return {host::toText(host::getProperty(source, "DisplayName").get())};
}

/// The distinct texts that `textsOf` returns for the sources of arrays.
std::vector<std::string> ofSources(std::span<const Array> arrays, const Where& where,
                                   std::vector<std::string> (*textsOf)(const kxArray*)) {
  const auto session = sessionOf(arrays);
  return publicCall(*session, where, [&] {
    const host::Value objects = columnOf(graphOf(arrays), "Nodes", "NodeObj");
    std::vector<std::string> texts;
    std::set<std::string> known;
    for (std::size_t i = 0; i < kxGetNumberOfElements(objects.get()); ++i) {
      const host::Value source = sourceOf(kxGetCell(objects.get(), i));
      if (source == nullptr) {
        continue;
      }
      for (std::string& text : textsOf(source.get())) {
        if (known.insert(text).second) {
          texts.push_back(std::move(text));
        }
      }
    }
    return texts;
  });
}

}  // namespace

LazyGraph lazyGraph(std::span<const Array> arrays, Where where) {
  const auto session = sessionOf(arrays);
  return publicCall(*session, where, [&] { return read(graphOf(arrays), arrays); });
}

std::vector<std::string> sourceFiles(std::span<const Array> arrays, Where where) {
  return ofSources(arrays, where, filesOf);
}

std::vector<std::string> sourceNames(std::span<const Array> arrays, Where where) {
  return ofSources(arrays, where, namesOf);
}

}  // namespace kv
