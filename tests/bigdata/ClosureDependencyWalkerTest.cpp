#include "lazyeval/ClosureDependencyWalker.h"

#include <algorithm>
#include <map>
#include <random>
#include <ranges>
#include <set>

#include "LazySession.h"
#include "support/Seed.h"

namespace bigdata::lazyeval {

namespace {

class ClosureDependencyWalkerTest : public LazySession {
 protected:
  /// Names a closure, and its outputs p and f with numbers from `firstOutput` on.
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
    for (const ClosureGraphNode& root : roots) {
      walker.walk(root);
    }
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

// The other cases, such as shared inputs and roots upstream of each other, are left to the model.
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

/// A graph as plain numbers, and the walk over it by recursion: outputs follow their closure, the
/// last first; inputs are explored from the last to the first.
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
    if (seen.insert(name).second) {
      order.push_back(name);
    }
  }
  void finishOutput(std::size_t output) {
    finish("p" + std::to_string(output));
    finish("f" + std::to_string(output));
  }
  void walkOutput(std::size_t output) {
    if (!all[output].isDone) {
      walk(all[output].closure);
    }
    finishOutput(output);
  }
  void walk(std::size_t closure) {
    const std::string name = "C" + std::to_string(closure);
    if (seen.contains(name)) {
      return;
    }
    for (const std::size_t input : inputs[closure] | std::views::reverse) {
      walkOutput(input);
    }
    finish(name);
    for (const std::size_t output : outputs[closure] | std::views::reverse) {
      finishOutput(output);
    }
  }

  std::set<std::size_t> dependencies(std::size_t closure) const {
    std::set<std::size_t> found;
    for (const std::size_t input : inputs[closure]) {
      if (!all[input].isDone) {
        found.insert(all[input].closure);
      }
    }
    return found;
  }
};

/// A random graph in two forms: as closures and as a model.
class RandomGraphs : public ClosureDependencyWalkerTest {
 protected:
  std::size_t below(std::size_t n) { return random() % n; }

  void addClosure() {
    const std::size_t number = closures.size();
    std::vector<std::size_t> inputs, outputs(below(4));
    for (std::size_t i = below(4); i > 0 && !model.all.empty(); --i) {
      inputs.push_back(below(model.all.size()));
    }
    std::vector<FuturePtr> futures;
    for (const std::size_t input : inputs) {
      futures.push_back(modelled(input)->getFuture().lock());
    }
    closures.push_back(closure(futures, static_cast<int>(outputs.size())));
    label(closures.back(), "C" + std::to_string(number), static_cast<int>(model.all.size()));
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      outputs[i] = model.all.size();
      model.all.push_back({number, i});
    }
    model.inputs.push_back(std::move(inputs));
    model.outputs.push_back(std::move(outputs));
  }

  /// Completes one output in four; for half of these, the promise keeps its closure.
  void completeSome() {
    for (std::size_t output = 0; output < model.all.size(); ++output) {
      if (below(4) == 0) {
        model.all[output].isDone = true;
        if (below(2) == 0) {
          modelled(output)->setPartitionIndependent(false);
        }
        modelled(output)->setValue(kv::host::makeDouble(1));
      }
    }
  }

  ClosureGraphNode addRoot() {
    if (const std::size_t kind = below(3); kind != 0 && !model.all.empty()) {
      const std::size_t output = below(model.all.size());
      model.walkOutput(output);
      if (kind == 1) {
        return modelled(output);
      }
      return modelled(output)->getFuture().lock();
    }
    const std::size_t root = below(closures.size());
    model.walk(root);
    return closures[root];
  }

  PromisePtr modelled(std::size_t output) {
    return promise(closures[model.all[output].closure], model.all[output].index);
  }

  std::set<std::size_t> dependencies(std::size_t closure) const {
    const std::vector<ClosurePtr> found = closures[closure]->getDirectDependencies();
    std::set<std::size_t> numbers;
    for (std::size_t i = 0; i < closures.size(); ++i) {
      if (std::ranges::count(found, closures[i].get(), &ClosurePtr::get) == 1) {
        numbers.insert(i);
      }
    }
    EXPECT_EQ(numbers.size(), found.size());
    return numbers;
  }

  std::mt19937_64 random{kv::test::drawSeed()};
  ModelGraph model;
  std::vector<ClosurePtr> closures;
};

TEST_F(RandomGraphs, AreWalkedAndDependAsARecursiveModelSays) {
  for (int round = 0; round < 30; ++round) {
    model = {};
    closures.clear();
    for (std::size_t count = 1 + below(12); count > 0; --count) {
      addClosure();
    }
    completeSome();
    std::vector<ClosureGraphNode> roots;
    for (int i = 0; i < 3; ++i) {
      roots.push_back(addRoot());
    }
    std::string expected;
    for (const std::string& name : model.order) {
      expected += (expected.empty() ? "" : " ") + name;
    }
    EXPECT_EQ(walk(roots), expected);
    for (std::size_t i = 0; i < closures.size(); ++i) {
      EXPECT_EQ(dependencies(i), model.dependencies(i));
    }
  }
}

}  // namespace

}  // namespace bigdata::lazyeval
