#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>

#include "LazySession.h"
#include "ki/createManagedObject.h"
#include "lazyeval/LazyTaskGraph.h"
#include "support/SmallStack.h"
#include "support/Worlds.h"

namespace bigdata::lazyeval {

namespace {

double residentBytes() {
  std::ifstream statm("/proc/self/statm");
  double pages = 0;
  double residentPages = 0;
  statm >> pages >> residentPages;
  return residentPages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// Prints the cost of each step of a test.
class StepFigures {
 public:
  StepFigures(const char* what, std::size_t closures) : closures_(static_cast<double>(closures)) {
    std::printf("deep: %s of %zu closures, stack of %zu KiB\n", what, closures,
                kv::test::kSmallStackBytes / 1024);
  }

  void end(const char* step) {
    const auto now = std::chrono::steady_clock::now();
    const double bytes = residentBytes();
    std::printf("deep:   %-8s %7.3f s, %+6.0f bytes a closure\n", step,
                std::chrono::duration<double>(now - start_).count(), (bytes - bytes_) / closures_);
    bytes_ = residentBytes();
    start_ = std::chrono::steady_clock::now();
  }

 private:
  double closures_;
  double bytes_ = residentBytes();
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Opens its session on the thread that runs the test's work. The host side makes nothing that
/// grows with the graph: one task for all closures, and a digraph that holds only the sizes of the
/// two tables.
class DeepGraph : public LazySession {
 public:
  DeepGraph() {
    const auto rowsOfFirstInput = [](const Call& c) {
      c.out(0, kv::host::makeDouble(static_cast<double>(kxGetM(c.in(0)))));
    };
    const auto addInputs = [](const Call& c) {
      c.out(0, kv::host::makeDouble(kxGetScalar(c.in(0)) * 1e8 + kxGetScalar(c.in(1))));
    };
    session.defineFunction("table", rowsOfFirstInput);
    session.defineFunction("digraph", addInputs);
    session.defineFunction("categorical", [](const Call& c) { c.out(0, kv::host::makeDouble(0)); });
    session.defineFunction("containers.Map",
                           [](const Call& c) { c.out(0, kv::host::makeDouble(0)); });
    createTasks = [&](const Call&) {
      calls.clear();
      return matrix::sharedCopy(task.get());
    };
    session.collect();
    objectsBefore = session.liveObjects();
  }

  void chain() {
    StepFigures figures("chain", size);
    Value array = source();
    for (std::size_t i = 1; i < size; ++i) {
      array = callWith("elementfun", {function.get(), array.get()});
      calls.clear();
    }
    figures.end("record");
    useAndDrop(std::move(array), size, figures);
  }

  void fan() {
    StepFigures figures("fan", size);
    Value array = [&] {
      std::vector<Value> sources;
      std::vector<const kxArray*> inputs = {function.get()};
      for (std::size_t i = 0; i < size; ++i) {
        sources.push_back(source());
        inputs.push_back(sources.back().get());
      }
      return std::move(session.call("elementfun", 1, inputs).front());
    }();
    figures.end("record");
    useAndDrop(std::move(array), size + 1, figures);
  }

 private:
  void TestBody() override {}

  /// The array of a closure without inputs; all such closures share an operation.
  Value source() {
    return lazyArray(
        future(ki::createManagedObject<Closure>(std::vector<FuturePtr>(), sourceOperation)));
  }

  /// Views, plans, marks, releases and collects the graph of an array that reaches `closures`
  /// closures with one output each. Each closure but the last has one reader.
  void useAndDrop(Value array, std::size_t closures, StepFigures& figures) {
    {
      const Value graph = make("optimizer.ClosureGraph", array);
      const auto nodes = static_cast<double>(3 * closures);
      EXPECT_EQ(kxGetScalar(get(graph, "Graph").get()), (nodes - 1) * 1e8 + nodes);
    }
    figures.end("view");
    {
      const ClosurePtr last = ki::fromArray<LazyArrayPtr>(array.get())
                                  ->getValueFuture()
                                  ->getPromise()
                                  ->getClosure()
                                  .lock();
      const auto plan = ki::createManagedObject<LazyTaskGraph>(std::vector<ClosurePtr>{last});
      EXPECT_EQ(kxGetNumberOfElements(plan->getTasks()), closures);
    }
    figures.end("plan");
    session.collect();
    EXPECT_EQ(session.liveObjects("kalvex.bigdata.internal.lazyeval.Closure"), closures);
    figures.end("mark");
    array.reset();
    figures.end("release");
    session.collect();
    EXPECT_EQ(session.liveObjects("kalvex.bigdata.internal.lazyeval.Closure"), 0u);
    EXPECT_EQ(session.liveObjects(), objectsBefore);
    figures.end("collect");
  }

  const std::size_t size = kv::test::sizes().chain;
  const Value function = plus();
  const Value task = newTasks(1);
  const OperationPtr sourceOperation = operation(0, 1);
  std::size_t objectsBefore = 0;
};

TEST(DeepGraphTest, AChainIsRecordedPlannedAndReleasedOnASmallStack) {
  kv::test::runOnSmallStack([] { DeepGraph().chain(); });
}

TEST(DeepGraphTest, AFanIsRecordedPlannedAndReleasedOnASmallStack) {
  kv::test::runOnSmallStack([] { DeepGraph().fan(); });
}

}  // namespace

}  // namespace bigdata::lazyeval
