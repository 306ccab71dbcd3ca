#include <gmock/gmock.h>
#include <kv/lazyGraph.h>

#include <algorithm>
#include <set>

#include "array/ArrayTest.h"

namespace kv::test {

namespace {

using testing::EndsWith;
using LazyGraphs = ArrayTest;
using Kind = LazyGraph::Kind;

std::size_t countOf(const LazyGraph& graph, Kind kind) {
  return static_cast<std::size_t>(std::ranges::count(graph.nodes, kind, &LazyGraph::Node::kind));
}

TEST_F(LazyGraphs, ShowClosuresPromisesAndFuturesWithTheUsersLines) {
  const Array x = read("x,y\n1,2\n").column("x");
  const int line = __LINE__ + 1;
  const Array total = sum(x);
  const LazyGraph graph = lazyGraph(std::vector<Array>{total, x, total});

  EXPECT_EQ(graph.nodes.size(), 9U);
  for (const Kind kind : {Kind::Closure, Kind::Promise, Kind::Future}) {
    EXPECT_EQ(countOf(graph, kind), 3U);
  }
  ASSERT_EQ(graph.results.size(), 3U);
  EXPECT_EQ(graph.results[0], graph.results[2]);
  EXPECT_EQ(graph.nodes[graph.results[1]].kind, Kind::Future);

  const auto last = std::ranges::find_if(
      graph.nodes, [&](const LazyGraph::Node& node) { return node.place.line == line; });
  ASSERT_NE(last, graph.nodes.end());
  EXPECT_THAT(last->operation, EndsWith(".AggregateOperation"));
  EXPECT_THAT(last->place.file, EndsWith("LazyGraphTest.cpp"));

  EXPECT_EQ(graph.edges.size(), 8U);
  for (const LazyGraph::Edge& edge : graph.edges) {
    EXPECT_LT(edge.from, edge.to) << "a node comes after what it depends on";
  }
}

TEST_F(LazyGraphs, EndAtComputedValues) {
  const Array x = read("x\n1\n").column("x");
  const Array total = sum(x);
  total.gather();
  const LazyGraph graph = lazyGraph(std::vector<Array>{total * 2});

  EXPECT_EQ(countOf(graph, Kind::Closure), 0U) << "an operation on available values is computed";
  EXPECT_EQ(graph.nodes[graph.results[0]].kind, Kind::Future);
  EXPECT_EQ(countOf(lazyGraph(std::vector<Array>{total + x}), Kind::Closure), 3U);
  EXPECT_EQ(errorOf([] { lazyGraph({}); }).identifier(), "KALVEX:array:NoArray");
}

}  // namespace
}  // namespace kv::test
