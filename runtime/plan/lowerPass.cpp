// A pass is lowered when it is about to run, and not before: only then is it known which branches
// were chosen and which values are there. Each task looks up the links of its inputs by number, so
// the cost is that of one walk over the plan.

#include "plan/lowerPass.h"

#include <cassert>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/cuts.h"
#include "plan/Dependencies.h"

namespace kv::runtime {

namespace {

class PassLowering {
 public:
  PassLowering(const Plan& plan, const Schedule& schedule)
      : plan_(plan), schedule_(schedule), linkOf_(plan.tasks.size()) {}

  void addTask(int index) {
    const PlanTask& task = plan_.task(index);
    StepLink& link = linkOf_[static_cast<std::size_t>(index)];
    std::vector<StepLink> inputs = inputsOf(index);
    graph_.tasks.push_back(index);
    if (isChosen(index) && inputs.size() == 1) {
      link = inputs[0];
      return;
    }
    const bool isOpen = task.spec->isChoice && !isChosen(index);
    link = {.index = graph_.steps.size()};
    addStep(index, {isOpen || task.spec->op == nullptr ? pass_ : task.spec->op, std::move(inputs),
                    task.spec->numOutputs, task.spec->label, task.spec->origin, task.rowSpace,
                    task.spec->callsUser ? task.spec->functions : std::vector<std::string>()});
  }

  /// Adds the step that gives the result of a sink.
  void addSink(const PassSink& sink) {
    graph_.sinks.push_back({graph_.outputs.size()});
    if (!sink.isAggregate) {
      const StepLink link = linkOf(sink.task, sink.output);
      addStep(sink.task,
              {makeCollect(), {link}, 1, "keep rows", plan_.task(sink.task).spec->origin});
    }
    graph_.outputs.push_back(sink.isAggregate ? linkOf(sink.task, 0).index
                                              : graph_.steps.size() - 1);
  }

  PassGraph take() { return std::move(graph_); }

 private:
  bool isChosen(int index) const {
    const Branch branch = schedule_.branchOf(index);
    return plan_.task(index).spec->isChoice &&
           (branch == Branch::First || branch == Branch::Second);
  }

  void addStep(int task, Step step) {
    graph_.steps.push_back(std::move(step));
    graph_.taskOf.push_back(task);
  }

  std::vector<StepLink> inputsOf(int index) {
    const PlanTask& task = plan_.task(index);
    const PlanInput* spread = task.spreadOver ? &*task.spreadOver : nullptr;
    std::vector<StepLink> links;
    for (const PlanInput* input : schedule_.inputsOf(index)) {
      if (input == spread && !isChosen(index)) {
        continue;  // the rows of a value that may not be chosen
      }
      if (plan_.flowsInPass(*input)) {
        links.push_back(linkOf(input->task, input->output));
      } else {
        links.push_back({.isStageInput = true, .index = graph_.inputs.size()});
        graph_.inputs.push_back({*input, index});
      }
    }
    return links;
  }

  StepLink linkOf(int task, std::size_t output) const {
    StepLink link = linkOf_[static_cast<std::size_t>(task)];
    if (plan_.task(task).spec->numOutputs > 1) {
      link.output = output;
    }
    return link;
  }

  const Plan& plan_;
  const Schedule& schedule_;
  const OperatorPtr pass_ = makePass();
  std::vector<StepLink> linkOf_;  ///< to the result of each task
  PassGraph graph_;
};

/// Leaves those steps, by their numbers, in this order.
/// Requires: each comes after its inputs; all outputs are among them.
void takeSteps(PassGraph& graph, const std::vector<std::size_t>& order) {
  std::vector<std::size_t> placeOf(graph.steps.size());
  std::vector<Step> steps;
  std::vector<int> taskOf;
  for (const std::size_t number : order) {
    placeOf[number] = steps.size();
    steps.push_back(std::move(graph.steps[number]));
    taskOf.push_back(graph.taskOf[number]);
    for (StepLink& link : steps.back().inputs) {
      link.index = link.isStageInput ? link.index : placeOf[link.index];
      assert(link.isStageInput || link.index + 1 < steps.size());
    }
  }
  for (std::size_t& output : graph.outputs) {
    output = placeOf[output];
    assert(output < steps.size());
  }
  graph.steps = std::move(steps);
  graph.taskOf = std::move(taskOf);
}

/// Puts flow steps between steps where rows must be cut anew.
void alignCuts(PassGraph& graph, const Plan& plan) {
  static const RowPlaces kMadeRows{};  // all that matters is that they are rows
  InputPlaces places;
  for (const PassInput& input : graph.inputs) {
    places.push_back(plan.makesRows(input.from) ? &kMadeRows : input.from.places.get());
  }
  AlignedSteps aligned = alignCuts(std::move(graph.steps), std::move(places));
  graph.steps = std::move(aligned.steps);
  for (std::size_t& output : graph.outputs) {
    output = aligned.placeOf[output];
  }
  std::vector<int> taskOf;
  for (const std::size_t step : aligned.madeFor) {
    taskOf.push_back(graph.taskOf[step]);
  }
  graph.taskOf = std::move(taskOf);
}

/// Puts each step right before the first that reads its result, which leaves few columns at hand at
/// a time, and drops steps that no result needs. A step that takes values with the rows of another
/// comes after that one, too.
void orderByUse(PassGraph& graph) {
  std::map<std::string_view, std::size_t> makers;
  Dependencies dependencies;
  for (std::size_t step = 0; step < graph.steps.size(); ++step) {
    dependencies.addNode();
    for (const StepLink& link : graph.steps[step].inputs) {
      if (!link.isStageInput) {
        dependencies.addNeed(link.index);
        continue;
      }
      const auto& places = graph.inputs[link.index].from.places;
      const auto maker = places ? makers.find(places->cut->source) : makers.end();
      if (maker != makers.end()) {
        dependencies.addNeed(maker->second);
      }
    }
    if (!graph.steps[step].rowSpace.empty()) {
      makers.emplace(graph.steps[step].rowSpace, step);
    }
  }
  dependencies.addNode();
  for (const std::size_t output : graph.outputs) {
    dependencies.addNeed(output);
  }
  std::vector<std::size_t> order = orderFrom(dependencies, graph.steps.size()).nodes;
  order.pop_back();  // the node of all outputs
  takeSteps(graph, order);
}

/// The tasks of a pass in an order in which what takes values comes after the task that makes rows
/// like theirs.
std::vector<int> inRowOrder(const Plan& plan, const Schedule& schedule, std::vector<int> tasks) {
  std::map<int, std::size_t> nodes;
  std::map<std::string_view, std::size_t> makers;
  for (std::size_t node = 0; node < tasks.size(); ++node) {
    nodes.emplace(tasks[node], node);
    if (renewsRows(plan.task(tasks[node]))) {
      makers.emplace(plan.task(tasks[node]).rowSpace, node);
    }
  }
  if (makers.empty()) {
    return tasks;
  }
  Dependencies dependencies;
  for (const int task : tasks) {
    dependencies.addNode();
    for (const PlanInput* input : schedule.inputsOf(task)) {
      const auto maker = input->places ? makers.find(input->places->cut->source) : makers.end();
      if (const auto node = nodes.find(input->task); node != nodes.end()) {
        dependencies.addNeed(node->second);
      } else if (maker != makers.end()) {
        dependencies.addNeed(maker->second);
      }
    }
  }
  dependencies.addNode();
  for (std::size_t node = 0; node < tasks.size(); ++node) {
    dependencies.addNeed(node);
  }
  const DependencyOrder order = orderFrom(dependencies, tasks.size());
  std::vector<int> ordered;
  for (std::size_t i = 0; i < tasks.size() && !order.onCycle; ++i) {
    ordered.push_back(tasks[order.nodes[i]]);
  }
  return order.onCycle ? tasks : ordered;
}

}  // namespace

PassGraph lowerPass(const Plan& plan, const Schedule& schedule, const std::vector<PassSink>& sinks,
                    const Rules& rules) {
  PassLowering lowering(plan, schedule);
  for (const int task : inRowOrder(plan, schedule, schedule.upstreamOf(sinks))) {
    lowering.addTask(task);
  }
  for (const PassSink& sink : sinks) {
    lowering.addSink(sink);
  }
  PassGraph graph = lowering.take();
  alignCuts(graph, plan);
  for (const Rule* rule : rules) {
    rule->apply(graph);
  }
  orderByUse(graph);
  return graph;
}

PassGraph lowerAll(const Plan& plan) {
  Schedule schedule(plan);
  PassLowering lowering(plan, schedule);
  for (int task = 0; task < static_cast<int>(plan.tasks.size()); ++task) {
    if (plan.task(task).spec->isChoice && schedule.branchOf(task) == Branch::Unknown) {
      schedule.setBranch(task, Branch::Both);
    }
    if (!plan.task(task).runsInClient) {
      lowering.addTask(task);
    }
  }
  return lowering.take();
}

}  // namespace kv::runtime
