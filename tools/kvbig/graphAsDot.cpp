#include "graphAsDot.h"

#include <fmt/format.h>

#include <cassert>
#include <map>
#include <string_view>

#include "output.h"

namespace kv::shell {

namespace {

/// For use inside quotes, where DOT reads a backslash as the start of an escape.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : printable(text)) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    result += c;
  }
  return result;
}

std::string linesOf(const LazyGraph::Node& closure) {
  const std::string shortName = closure.operation.substr(closure.operation.rfind('.') + 1);
  if (closure.place.file.empty()) {
    return escaped(shortName);
  }
  const std::string place = fmt::format("{}:{}", closure.place.file, closure.place.line);
  return fmt::format("{}\\n{}", escaped(shortName), escaped(place));
}

std::string attributesOf(const LazyGraph::Node& node) {
  switch (node.kind) {
    case LazyGraph::Kind::Closure:
      return fmt::format("shape=box, label=\"{}\"", linesOf(node));
    case LazyGraph::Kind::Promise:
      return "label=\"promise\"";
    case LazyGraph::Kind::Future:
      return "label=\"future\"";
  }
  return {};
}

}  // namespace

std::string graphAsDot(const LazyGraph& graph, const std::vector<std::string>& labels) {
  assert(labels.size() == graph.results.size());
  std::map<std::size_t, std::string> answers;  // an array may be requested twice
  for (std::size_t i = 0; i < labels.size(); ++i) {
    answers[graph.results[i]] += "\\n" + escaped(labels[i]);
  }
  std::string text = "digraph {\n";
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    const LazyGraph::Node& node = graph.nodes[i];
    const auto answer = answers.find(i);
    const std::string attributes =
        answer == answers.end() ? attributesOf(node)
                                : fmt::format("peripheries=2, label=\"future{}\"", answer->second);
    text += fmt::format("  n{} [{}];\n", i + 1, attributes);
  }
  for (const LazyGraph::Edge& edge : graph.edges) {
    text += fmt::format("  n{} -> n{};\n", edge.from + 1, edge.to + 1);
  }
  return text + "}\n";
}

}  // namespace kv::shell
