#include <pthread.h>

#include <functional>

#include "LazySession.h"
#include "ki/createManagedObject.h"
#include "lazyeval/LazyTaskGraph.h"
#include "support/Worlds.h"

namespace bigdata::lazyeval {

namespace {

/// Runs `work` on a thread with a stack of 256 KiB.
void runOnSmallStack(std::function<void()> work) {
  constexpr std::size_t kStackBytes = 256 * 1024;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStackBytes);
  pthread_t thread;
  const auto run = [](void* function) -> void* {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

/// Opens its session on the thread that runs the test's work.
class DeepChain : public LazySession {
 public:
  void TestBody() override {
    const std::size_t depth = kv::test::sizes().chain;
    stub("keepAlive");
    Value task = newTasks(1);
    createTasks = [&](const Call&) {
      calls.clear();
      return matrix::sharedCopy(task.get());
    };
    const Value function = plus();
    const Value two = kv::host::makeDouble(2);
    session.collect();
    const std::size_t before = session.liveObjects();
    {
      Value array = lazyArray(future(closure({})));
      for (std::size_t i = 1; i < depth; ++i) {
        array = callWith("elementfun", {function.get(), array.get(), two.get()});
        calls.clear();
      }
      const PromisePtr promise =
          ki::fromArray<LazyArrayPtr>(array.get())->getValueFuture()->getPromise().lock();
      const auto graph = ki::createManagedObject<LazyTaskGraph>(
          std::vector<ClosurePtr>{promise->getClosure().lock()});
      EXPECT_EQ(kxGetNumberOfElements(graph->getTasks()), depth);
    }
    calls.clear();
    session.collect();
    EXPECT_EQ(session.liveObjects("kalvex.bigdata.internal.lazyeval.Closure"), 0u);
    EXPECT_LE(session.liveObjects(), before);
  }
};

TEST(DeepChainTest, IsRecordedPlannedAndReleasedOnASmallStack) {
  runOnSmallStack([] { DeepChain().TestBody(); });
}

}  // namespace

}  // namespace bigdata::lazyeval
