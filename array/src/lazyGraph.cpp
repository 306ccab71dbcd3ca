// The core returns its graph as tables of names and objects. Here they become plain values with
// indices, so that callers need no host value. Arrays are found by object and not by name, because
// a saved and reopened array has the ids of its original.

#include "kv/lazyGraph.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "closures.h"
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

/// What a closure reads; null unless it reads a source.
host::Value sourceOf(const kxArray* closure) {
  const host::Value operation = host::getProperty(closure, "Operation");
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

/// Adds texts that aren't there yet.
void addNew(std::vector<std::string>& texts, std::vector<std::string> more) {
  for (std::string& text : more) {
    if (std::ranges::find(texts, text) == texts.end()) {
      texts.push_back(std::move(text));
    }
  }
}

/// What is read to make the promised value, without the tables of the graph, which take longer.
std::vector<std::string> sourceNames(host::Value promise) {
  std::vector<std::string> names;
  std::unordered_set<const kcos::COSInterface*> seen;
  std::vector<host::Value> waiting;
  waiting.push_back(std::move(promise));
  while (!waiting.empty()) {
    const host::Value next = std::move(waiting.back());
    waiting.pop_back();
    if (isDone(next.get())) {
      continue;
    }
    const host::Value closure = closureOf(next.get());
    if (!seen.insert(objectIn(closure.get())).second) {
      continue;
    }
    if (const host::Value source = sourceOf(closure.get())) {
      addNew(names, namesOf(source.get()));
    }
    std::vector<host::Value> inputs = inputsOf(closure.get());
    waiting.insert(waiting.end(), std::move_iterator(inputs.rbegin()),
                   std::move_iterator(inputs.rend()));
  }
  return names;
}

}  // namespace

LazyGraph lazyGraph(std::span<const Array> arrays, Where where) {
  const auto session = sessionOf(arrays);
  return publicCall(*session, where, [&] { return read(graphOf(arrays), arrays); });
}

std::vector<std::string> sourceFiles(std::span<const Array> arrays, Where where) {
  const auto session = sessionOf(arrays);
  return publicCall(*session, where, [&] {
    const host::Value objects = columnOf(graphOf(arrays), "Nodes", "NodeObj");
    std::vector<std::string> files;
    for (std::size_t i = 0; i < kxGetNumberOfElements(objects.get()); ++i) {
      const kxArray* node = kxGetCell(objects.get(), i);
      const host::Value source = kxIsA(node, kClosure) ? sourceOf(node) : nullptr;
      if (source != nullptr) {
        addNew(files, filesOf(source.get()));
      }
    }
    return files;
  });
}

Origin originOf(const Array& array, Where where) {
  const auto session = sessionOf(std::span(&array, 1));
  return publicCall(*session, where, [&] {
    host::Value promise = promiseOfArray(array.handle().value.get());
    Origin origin;
    if (!isDone(promise.get())) {
      const host::Value operation = host::getProperty(closureOf(promise.get()).get(), "Operation");
      origin.place = placeOf(host::getProperty(operation.get(), "Stack").get());
    }
    origin.sources = sourceNames(std::move(promise));
    return origin;
  });
}

}  // namespace kv
