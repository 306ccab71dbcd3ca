#include <algorithm>
#include <map>

#include "LazySession.h"
#include "executor/BroadcastPartitionStrategy.h"
#include "ki/createManagedObject.h"

namespace bigdata::lazyeval {

namespace {

constexpr auto kGraphClass = "kalvex.bigdata.internal.lazyeval.LazyTaskGraph";

class LazyTaskGraphTest : public LazySession {
 protected:
  Value plan(const std::vector<ClosurePtr>& closures) {
    const Value input = ki::toArray(closures);
    return callWith(kGraphClass, {input.get()});
  }

  /// The ids of tasks, or of closures, in an object array, separated by blanks.
  std::string idsOf(const kxArray* objects) {
    std::string ids;
    for (std::size_t i = 0; i < kxGetNumberOfElements(objects); ++i) {
      const Value id = matrix::from_kalvex(kxGetPropertyShared(objects, i, "Id"));
      ids += (i == 0 ? "" : " ") + kv::host::toText(id.get());
    }
    return ids;
  }
  std::string idsOf(const Value& graph, std::string_view property) {
    return idsOf(get(graph, property).get());
  }

  static std::string idOf(const ClosurePtr& closure) {
    return fl::i18n::to_string(closure->getId());
  }

  /// What the stub of containers.Map received, as "key -> id" lines.
  std::map<std::string, std::string> mapOf(const Value& graph, std::string_view property) {
    const Value map = get(graph, property);
    const std::vector<std::string> keys = kv::host::toTexts(kxGetCell(map.get(), 0));
    const kxArray* values = kxGetCell(map.get(), 1);
    std::map<std::string, std::string> entries;
    for (std::size_t i = 0; i < keys.size(); ++i) {
      entries[keys[i]] = idsOf(kxGetCell(values, i));
    }
    return entries;
  }
};

TEST_F(LazyTaskGraphTest, AsksForTasksInDependencyOrderOncePerClosure) {
  const ClosurePtr a = closure({});
  const ClosurePtr b = closure({future(a)});
  const ClosurePtr c = closure({future(b), future(a)});
  calls.clear();

  const Value graph = plan({c});

  std::string planned;
  for (const HostCall& noted : calls) {
    if (noted.name == "createExecutionTasks") {
      planned += idsOf(noted.inputs[0].get()) + " ";
    }
  }
  EXPECT_EQ(planned, idOf(a) + " " + idOf(b) + " " + idOf(c) + " ");
  const auto& inputs = lastCall("createExecutionTasks").inputs;
  EXPECT_EQ(idsOf(inputs.at(1).get()), idOf(a) + " " + idOf(b));
  EXPECT_EQ(idsOf(inputs.at(2).get()), "task_1 task_2");
  EXPECT_EQ(takeTrace(),
            "enabled() createExecutionTasks(Closure Closure ExecutionTask true) "
            "createExecutionTasks(Closure Closure ExecutionTask true) "
            "createExecutionTasks(Closure Closure ExecutionTask true) Map(string cell) "
            "Map(string cell)");

  EXPECT_EQ(idsOf(graph, "Tasks"), "task_1 task_2 task_3");
  EXPECT_EQ(idsOf(graph, "OutputTasks"), "task_3");
  const std::map<std::string, std::string> tasks = {
      {idOf(a), "task_1"}, {idOf(b), "task_2"}, {idOf(c), "task_3"}};
  const std::map<std::string, std::string> closures = {
      {"task_1", idOf(a)}, {"task_2", idOf(b)}, {"task_3", idOf(c)}};
  EXPECT_EQ(mapOf(graph, "ClosureToTaskMap"), tasks);
  EXPECT_EQ(mapOf(graph, "TaskToClosureMap"), closures);
}

TEST_F(LazyTaskGraphTest, SortsDependenciesByIdAsText) {
  std::vector<FuturePtr> inputs;
  std::vector<std::string> expected;
  for (int i = 0; i < 12; ++i) {
    const ClosurePtr upstream = closure({});
    inputs.push_back(future(upstream));
    expected.push_back(idOf(upstream));
  }
  std::sort(expected.begin(), expected.end());
  plan({closure(inputs)});
  std::string ids;
  for (const std::string& id : expected) {
    ids += (ids.empty() ? "" : " ") + id;
  }
  EXPECT_EQ(idsOf(lastCall("createExecutionTasks").inputs[1].get()), ids);
}

/// This is the case when an array meets its reopened copy.
TEST_F(LazyTaskGraphTest, ClosuresWithOneIdKeepTheirTasksInTheOrderOfThePlan) {
  std::vector<FuturePtr> inputs;
  for (int i = 0; i < 8; ++i) {
    const ClosurePtr upstream = closure({});
    upstream->setId(u"Closure_same");
    inputs.push_back(future(upstream));
  }
  const Value graph = plan({closure(inputs)});
  EXPECT_EQ(idsOf(lastCall("createExecutionTasks").inputs[2].get()),
            "task_1 task_2 task_3 task_4 task_5 task_6 task_7 task_8");

  // Entry i of both maps is about the closure of task i.
  const Value tasks = get(graph, "ClosureToTaskMap"), closures = get(graph, "TaskToClosureMap");
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    EXPECT_EQ(idsOf(kxGetCell(kxGetCell(tasks.get(), 1), i)), "task_" + std::to_string(i + 1));
    const auto shown = kcos::omGetArrayElement(kxGetCell(kxGetCell(closures.get(), 1), i), 0);
    // The last input is followed first.
    EXPECT_EQ(shown.get(), inputs[7 - i]->getPromise()->getClosure().child());
  }
}

TEST_F(LazyTaskGraphTest, OneClosureGoesByTheSingleKeyPath) {
  plan({closure({})});
  const auto& inputs = lastCall("createExecutionTasks").inputs;
  for (const std::size_t i : {1u, 2u}) {
    EXPECT_EQ(kxGetM(inputs[i].get()), 0u);
    EXPECT_EQ(kxGetN(inputs[i].get()), 1u);
  }
  EXPECT_EQ(kxGetClassName(inputs[2].get()), "kalvex.bigdata.internal.executor.ExecutionTask");
  const auto& map = lastCall("containers.Map").inputs;
  ASSERT_EQ(kxGetClassID(map[0].get()), kxCELL_CLASS);
  EXPECT_EQ(kxGetClassID(kxGetCell(map[0].get(), 0)), kxCHAR_CLASS);
  EXPECT_EQ(kv::host::toText(kxGetCell(map[0].get(), 0)), "task_1");
}

TEST_F(LazyTaskGraphTest, NoClosuresGiveEmptyArraysAndMaps) {
  calls.clear();
  const Value graph = plan({});
  EXPECT_EQ(takeCalls(), "enabled Map Map");
  for (const auto property : {"Tasks", "OutputTasks"}) {
    const Value tasks = get(graph, property);
    EXPECT_EQ(kxGetM(tasks.get()), 0u);
    EXPECT_EQ(kxGetClassName(tasks.get()), "kalvex.bigdata.internal.executor.ExecutionTask");
  }
}

TEST_F(LazyTaskGraphTest, TheLastTaskOfAClosureIsItsOutput) {
  createTasks = [this](const Call&) { return newTasks(3); };
  const ClosurePtr a = closure({});
  const ClosurePtr b = closure({future(a)});
  const Value graph = plan({a, b, a});
  EXPECT_EQ(idsOf(graph, "Tasks"), "task_1 task_2 task_3 task_4 task_5 task_6");
  EXPECT_EQ(idsOf(graph, "OutputTasks"), "task_3 task_6");
  EXPECT_EQ(idsOf(lastCall("createExecutionTasks").inputs[2].get()), "task_3");
  EXPECT_EQ(mapOf(graph, "TaskToClosureMap").size(), 2u);
}

TEST_F(LazyTaskGraphTest, ABroadcastOutputLeavesTheGraphUnasked) {
  const Value strategy =
      ki::toArray(ki::createManagedObject<executor::BroadcastPartitionStrategy>());
  const ClosurePtr a = closure({});
  createTasks = [&](const Call& c) {
    const bool isFirst = idsOf(c.in(0)) == idOf(a);
    return newTasks(1, isFirst ? matrix::sharedCopy(strategy.get()) : nullptr);
  };
  EXPECT_EQ(idsOf(plan({closure({future(closure({future(a)}))})}), "OutputTasks"), "task_1 task_3");
}

TEST_F(LazyTaskGraphTest, WorkThatIsDoneIsNotPlannedAgain) {
  const ClosurePtr a = closure({});
  const ClosurePtr b = closure({future(a)});
  promise(a)->setValue(kv::host::makeDouble(1));
  EXPECT_EQ(idsOf(plan({b}), "Tasks"), "task_1");
}

TEST_F(LazyTaskGraphTest, AnEmptyAnswerSharesTheLatestTaskUnlessThereIsNone) {
  const ClosurePtr a = closure({});
  const ClosurePtr b = closure({future(a)});
  createTasks = [&](const Call& c) { return newTasks(idsOf(c.in(0)) == idOf(a) ? 1 : 0); };
  const Value graph = plan({b});
  EXPECT_EQ(idsOf(graph, "Tasks"), "task_1");
  EXPECT_EQ(mapOf(graph, "ClosureToTaskMap").at(idOf(b)), "task_1");

  createTasks = [](const Call&) { return kv::host::makeEmptyDouble(); };
  EXPECT_EQ(errorOf([&] { plan({b}); }),
            internalError("createExecutionTasks gave no task for closure_" + idOf(a) +
                          ", the first closure of the plan"));
}

TEST_F(LazyTaskGraphTest, RefusesWhatIsNoTaskAndNoClosure) {
  createTasks = [](const Call&) { return kv::host::makeDouble(1); };
  EXPECT_EQ(errorOf([&] { plan({closure({})}); }),
            "KALVEX:validateattributes:invalidType | Input | "
            "kalvex.bigdata.internal.executor.ExecutionTask | double");
  const Value empty = kv::host::makeEmptyDouble();
  EXPECT_EQ(errorOf([&] { callWith(kGraphClass, {empty.get()}); }),
            "KALVEX:validateattributes:invalidType | Input | "
            "kalvex.bigdata.internal.lazyeval.Closure | double");
}

TEST_F(LazyTaskGraphTest, NamesAClosureThatCameInWhileThePlanWasMade) {
  const ClosurePtr a = closure({});
  const ClosurePtr b = closure({future(a)});
  const ClosurePtr stranger = closure({});
  createTasks = [&](const Call&) {
    promise(a)->swap(promise(stranger));
    return newTasks(1);
  };
  EXPECT_EQ(errorOf([&] { plan({b}); }), internalError("closure_" + idOf(stranger) +
                                                       " became an input while the plan was made"));
}

TEST_F(LazyTaskGraphTest, AFailureOfTheHostPassesThrough) {
  createTasks = [](const Call&) -> Value { kv::host::raise("KALVEX:OutOfMemory"); };
  EXPECT_EQ(errorOf([&] { plan({closure({})}); }), "KALVEX:OutOfMemory");
}

}  // namespace

}  // namespace bigdata::lazyeval
