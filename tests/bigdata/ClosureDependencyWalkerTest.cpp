#include "lazyeval/ClosureDependencyWalker.h"

#include <map>
#include <random>
#include <set>

#include "LazySession.h"

namespace bigdata::lazyeval {

namespace {

class ClosureDependencyWalkerTest : public LazySession {
 protected:
  /// Names a closure, and its outputs from `firstOutput` on as p and f with that number.
  void label(const ClosurePtr& closure, const std::string& name, int firstOutput) {
    names_[closure.get()] = name;
    for (std::size_t i = 0; i < closure->getOutputPromises().size(); ++i) {
      label(promise(closure, i), firstOutput + static_cast<int>(i));
    }
  }
  void label(const PromisePtr& promise, int number) {
    names_[promise.get()] = "p" + std::to_string(number);
    names_[promise->getFuture().get()] = "f" + std::to_string(number);
  }

  std::string walk(const std::vector<ClosureGraphNode>& roots) {
    ClosureDependencyWalker walker;
    for (const ClosureGraphNode& root : roots) walker.walk(root);
    std::string order;
    for (const ClosureGraphNode& node : walker.nodes()) {
      order += (order.empty() ? "" : " ") + names_.at(address(node));
    }
    return order;
  }

  static const void* address(const ClosureGraphNode& node) {
    return std::visit([](const auto& pointer) -> const void* { return pointer.get(); }, node);
  }

 private:
  std::map<const void*, std::string> names_;
};

/// C reads f1 of A and f2 of B.
class WalkOfThree : public ClosureDependencyWalkerTest {
 protected:
  WalkOfThree() {
    label(a, "A", 1);
    label(b, "B", 2);
    label(c, "C", 3);
  }
  ClosurePtr a = closure({});
  ClosurePtr b = closure({});
  ClosurePtr c = closure({future(a), future(b)});
};

// What else there is, shared inputs, roots upstream of each other, is the model's.
TEST_F(WalkOfThree, FollowsTheLastInputFirstAndStopsAtAPromiseThatIsDone) {
  EXPECT_EQ(walk({c}), "B p2 f2 A p1 f1 C p3 f3");
  promise(a)->setValue(kv::host::makeDouble(1));
  EXPECT_EQ(walk({c}), "B p2 f2 p1 f1 C p3 f3");
}

TEST_F(ClosureDependencyWalkerTest, ListsOutputsThatNobodyReadsLastOneFirst) {
  const ClosurePtr a = closure({}, 2);
  const ClosurePtr c = closure({future(a)});
  label(a, "A", 1);
  label(c, "C", 3);
  EXPECT_EQ(walk({c}), "A p2 f2 p1 f1 C p3 f3");
}

TEST_F(WalkOfThree, TakesFuturesAndPromisesAsRoots) {
  EXPECT_EQ(walk({future(a)}), "A p1 f1");
  EXPECT_EQ(walk({promise(a)}), "A p1 f1");
  const FuturePtr ready = constant(1);
  label(ready->getPromise().lock(), 9);
  EXPECT_EQ(walk({ready}), "p9 f9");
}

TEST_F(ClosureDependencyWalkerTest, ACycleMadeByHandIsAnErrorThatNamesTheClosure) {
  const ClosurePtr a = closure({constant(1)});
  const ClosurePtr b = closure({future(a)});
  a->setInputFutures({future(b)});
  const std::string id = fl::i18n::to_string(b->getIdStr());
  EXPECT_EQ(errorOf([&] { walk({b}); }), internalError("Closure " + id + " depends on itself"));
  a->setInputFutures({future(a)});
  EXPECT_NE(errorOf([&] { walk({b}); }), "no error");
}

TEST_F(WalkOfThree, ADeletedNodeRaises) {
  session.deleteObject(ki::toArray(a).get());
  EXPECT_EQ(errorOf([&] { walk({c}); }), "KALVEX:class:InvalidHandle");
}

// --- Against a model ----------------------------------------------------------------------------

/// The walk as recursion over plain numbers: outputs follow their closure, the last first; inputs
/// are explored from the last to the first.
struct ModelGraph {
  struct Output {
    std::size_t closure, index;
    bool isDone = false;
  };
  std::vector<std::vector<std::size_t>> inputs;   // of a closure: outputs that it reads
  std::vector<std::vector<std::size_t>> outputs;  // of a closure
  std::vector<Output> all;

  std::set<std::string> seen;
  std::vector<std::string> order;

  void finish(const std::string& name) {
    if (seen.insert(name).second) order.push_back(name);
  }
  void finishOutput(std::size_t output) {
    finish("p" + std::to_string(output));
    finish("f" + std::to_string(output));
  }
  void walk(std::size_t closure) {
    const std::string name = "C" + std::to_string(closure);
    if (seen.contains(name)) return;
    for (auto input = inputs[closure].rbegin(); input != inputs[closure].rend(); ++input) {
      if (!all[*input].isDone) walk(all[*input].closure);
      finishOutput(*input);
    }
    finish(name);
    for (auto output = outputs[closure].rbegin(); output != outputs[closure].rend(); ++output) {
      finishOutput(*output);
    }
  }
};

TEST_F(ClosureDependencyWalkerTest, AgreesWithARecursiveModelOnRandomGraphs) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](std::size_t n) { return random() % n; };
  for (int round = 0; round < 30; ++round) {
    ModelGraph model;
    std::vector<ClosurePtr> closures;
    const std::size_t count = 1 + below(12);
    for (std::size_t c = 0; c < count; ++c) {
      model.inputs.emplace_back();
      std::vector<FuturePtr> futures;
      for (std::size_t i = below(4); i > 0 && !model.all.empty(); --i) {
        const std::size_t output = below(model.all.size());
        model.inputs[c].push_back(output);
        futures.push_back(future(closures[model.all[output].closure], model.all[output].index));
      }
      const std::size_t numOutputs = below(4);
      closures.push_back(closure(futures, static_cast<int>(numOutputs)));
      label(closures[c], "C" + std::to_string(c), static_cast<int>(model.all.size()));
      model.outputs.emplace_back();
      for (std::size_t i = 0; i < numOutputs; ++i) {
        model.outputs[c].push_back(model.all.size());
        model.all.push_back({c, i});
      }
    }
    for (ModelGraph::Output& output : model.all) {
      if (below(4) == 0) {
        output.isDone = true;
        promise(closures[output.closure], output.index)->setValue(kv::host::makeDouble(1));
      }
    }
    std::vector<ClosureGraphNode> roots;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::size_t root = below(count);
      roots.push_back(closures[root]);
      model.walk(root);
    }
    std::string expected;
    for (const std::string& name : model.order) expected += (expected.empty() ? "" : " ") + name;
    EXPECT_EQ(walk(roots), expected);

    std::set<const Closure*> dependencies;
    for (const std::size_t output : model.inputs.back()) {
      if (!model.all[output].isDone) {
        dependencies.insert(closures[model.all[output].closure].get());
      }
    }
    const std::vector<ClosurePtr> found = closures.back()->getDirectDependencies();
    EXPECT_EQ(found.size(), dependencies.size());
    for (const ClosurePtr& closure : found) EXPECT_TRUE(dependencies.contains(closure.get()));
  }
}

}  // namespace

}  // namespace bigdata::lazyeval
