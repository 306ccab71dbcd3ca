#include "optimizer/ClosureGraph.h"

#include <map>

#include "LazySession.h"
#include "kx/string.h"

namespace bigdata::lazyeval {

namespace {

/// Stubbed tables are cells of their inputs, and so are graphs: {edges, nodes}.
class ClosureGraphTest : public LazySession {
 protected:
  ClosureGraphTest() {
    const auto cellOfInputs = [](const Call& c) {
      std::vector<Value> inputs;
      for (int i = 0; i < c.nrhs; ++i) {
        inputs.push_back(matrix::sharedCopy(c.in(i)));
      }
      c.out(0, kv::host::makeCell(std::move(inputs)));
    };
    stub("table", cellOfInputs);
    stub("digraph", cellOfInputs);
    stub("categorical", [](const Call& c) { c.out(0, matrix::sharedCopy(c.in(0))); });
  }

  Value graphOf(const std::vector<const kxArray*>& arrays) {
    return std::move(
        session.call("kalvex.bigdata.internal.optimizer.ClosureGraph", 1, arrays).at(0));
  }
  static std::string text(const kxArray* strings, std::size_t index) {
    const auto element = Torvane::String::getString(strings, index);
    return element ? fl::i18n::to_string(*element) : "missing";
  }

  /// The nodes by kind: c, p or f and a number, counted per kind in order of appearance.
  std::string nodes(const Value& graph) {
    const Value shown = get(graph, "Graph");
    const kxArray* table = kxGetCell(shown.get(), 1);
    std::string line;
    for (std::size_t i = 0; i < kxGetM(kxGetCell(table, 0)); ++i) {
      line += (i == 0 ? "" : " ") + shortName(text(kxGetCell(table, 0), i));
    }
    return line;
  }
  std::string edges(const Value& graph) {
    const Value shown = get(graph, "Graph");
    const kxArray* ends = kxGetCell(kxGetCell(shown.get(), 0), 0);
    const std::size_t count = kxGetM(ends);
    std::vector<std::string> found;
    for (std::size_t i = 0; i < count; ++i) {
      found.push_back(shortName(text(ends, i)) + shortName(text(ends, count + i)));
    }
    std::ranges::sort(found);
    std::string line;
    for (const std::string& edge : found) {
      line += (line.empty() ? "" : " ") + edge;
    }
    return line;
  }

 private:
  std::string shortName(const std::string& id) {
    const auto [found, isNew] = names_.try_emplace(id);
    if (isNew) {
      found->second = id[0] + std::to_string(++count_[id[0]]);
    }
    return found->second;
  }

  std::map<std::string, std::string> names_;
  std::map<char, int> count_;
};

TEST_F(ClosureGraphTest, ShowsNodesInTheOrderOfTheWalkAndEdgesAsDataFlows) {
  const ClosurePtr first = closure({});
  const ClosurePtr second = closure({future(first), future(first), constant(1)});
  const Value x = lazyArray(future(second));
  const Value graph = graphOf({x.get(), x.get()});
  EXPECT_EQ(nodes(graph), "p1 f1 c1 p2 f2 c2 p3 f3");
  EXPECT_EQ(edges(graph), "c1p2 c2p3 f1c2 f2c2 p1f1 p2f2 p3f3");
  EXPECT_EQ(kxGetNumberOfElements(get(graph, "Futures").get()), 2u);

  const Value shown = get(graph, "Graph");
  const kxArray* table = kxGetCell(shown.get(), 1);
  const std::string expected[] = {"Name", "NodeObj", "IsClosure", "OpType"};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(text(kxGetCell(table, 5), i), expected[i]);
  }
  EXPECT_TRUE(kxIsSameValue(kxGetCell(kxGetCell(table, 1), 2), ki::toArray(first).get()));
  const bool* areClosures = kxGetLogicals(kxGetCell(table, 2));
  EXPECT_EQ(std::vector<bool>(areClosures, areClosures + 8),
            (std::vector<bool>{false, false, true, false, false, true, false, false}));
  EXPECT_EQ(text(kxGetCell(table, 3), 2), "TestOperation");
  EXPECT_EQ(text(kxGetCell(table, 3), 0), "missing");
  EXPECT_EQ(text(kxGetCell(kxGetCell(shown.get(), 0), 2), 0), "EndNodes");
}

TEST_F(ClosureGraphTest, NamesNodesOfOneIdApart) {
  const ClosurePtr original = closure({}), copy = closure({});
  copy->setId(original->getId());
  promise(copy)->setId(promise(original)->getId());
  const Value graph = graphOf({lazyArray(future(closure({future(original), future(copy)}))).get()});
  EXPECT_EQ(nodes(graph), "c1 p1 f1 c2 p2 f2 c3 p3 f3");
  EXPECT_EQ(edges(graph), "c1p1 c2p2 c3p3 f1c3 f2c3 p1f1 p2f2 p3f3");
  const Value shown = get(graph, "Graph");
  const kxArray* names = kxGetCell(kxGetCell(shown.get(), 1), 0);
  EXPECT_EQ(text(names, 3), text(names, 0) + " (2)");
}

TEST_F(ClosureGraphTest, ASnapshotChangesOnlyWhenItIsTakenAgain) {
  const ClosurePtr only = closure({});
  const Value x = lazyArray(future(only));
  const Value graph = graphOf({x.get()});
  EXPECT_EQ(edges(graph), "c1p1 p1f1");
  promise(only)->setPartitionIndependent(false);  // so that it keeps its closure when done
  promise(only)->setValue(kv::host::makeDouble(1));
  EXPECT_EQ(edges(graph), "c1p1 p1f1");
  invoke(graph, "recalculate");
  EXPECT_EQ(nodes(graph), "p1 f1");
  EXPECT_EQ(edges(graph), "p1f1");

  stub("digraph", [](const Call&) { kv::host::raise("KALVEX:OutOfMemory"); });
  const Value before = get(graph, "Graph");
  EXPECT_EQ(errorOf([&] { invoke(graph, "recalculate"); }), "KALVEX:OutOfMemory");
  EXPECT_TRUE(kxIsSameValue(get(graph, "Graph").get(), before.get()));
}

TEST_F(ClosureGraphTest, OfNothingIsEmpty) {
  const Value graph = graphOf({});
  EXPECT_EQ(nodes(graph), "");
  EXPECT_EQ(edges(graph), "");
}

}  // namespace

}  // namespace bigdata::lazyeval
