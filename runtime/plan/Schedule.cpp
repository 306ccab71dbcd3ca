// A round is two walks over the plan, in arrays by task. Backward from the results that are
// missing: a task that is needed needs its inputs, either whole or flowing, and of a choice only
// those of its branch. Forward: a task can run if all that it takes whole is there and all that
// flows to it can run. Nothing is kept from one round to the next but what is done, so that a
// branch that becomes known needs no repair of earlier decisions.

#include "plan/Schedule.h"

#include <algorithm>
#include <stdexcept>

#include "plan/RowSpaces.h"

namespace kv::runtime {

Schedule::Schedule(const Plan& plan)
    : plan_(plan),
      isDone_(plan.tasks.size(), false),
      branches_(plan.tasks.size(), Branch::Unknown),
      notAsked_(plan.tasks.size()),
      ownSource_(plan.tasks.size(), -1) {
  findOwnSources();
  for (int task = 0; task < numTasks(); ++task) {
    if (const auto known = plan.task(task).knownCondition) {
      branches_[at(task)] = *known ? Branch::First : Branch::Second;
    }
  }
  for (const PlanResult& result : plan.results) {
    if (!result.isAsked && plan.task(result.task).isPartitioned) {
      notAsked_[at(result.task)].push_back(result.output);
    }
  }
}

void Schedule::findOwnSources() {
  const RowSpaces rowSpaces(plan_);
  for (int task = 0; task < numTasks(); ++task) {
    int& own = ownSource_[at(task)];
    if (const auto source = plan_.task(task).spec->source()) {
      own = sources_.numberOf(*source);
    }
    for (const PlanInput& input : plan_.task(task).inputs) {
      if (input.places || plan_.makesRows(input)) {
        const int placed = input.places ? sources_.numberOf(*input.places->cut)
                                        : sources_.numberOf(rowSpaces.nameOf(input.task));
        own = own < 0 ? placed : sources_.combined(own, placed);
      }
    }
  }
}

std::optional<Round> Schedule::next() {
  findNeeds();
  if (std::ranges::all_of(plan_.results, [this](const PlanResult& result) {
        return !result.isAsked || isThere(result.task, result.output);
      })) {
    return std::nullopt;
  }
  Round round{.clientTasks = readyClientTasks()};
  if (round.clientTasks.empty()) {
    followRows();
    round = readyPasses();
    if (round.passes.empty()) {
      throw std::logic_error("a plan has results that nothing leads to");
    }
  }
  return round;
}

Schedule::Inputs Schedule::inputsOf(int index) const {
  const PlanTask& task = plan_.task(index);
  Inputs inputs;
  if (!task.spec->isChoice) {
    for (const PlanInput& input : task.inputs) {
      inputs.push_back(&input);
    }
    return inputs;
  }
  const Branch branch = branchOf(index);
  if (branch == Branch::Unknown) {
    inputs.push_back(&task.inputs.at(0));
  }
  bool isSpread = false;
  for (const Branch taken : {Branch::First, Branch::Second}) {
    if (branch == taken || branch == Branch::Both) {
      inputs.push_back(&task.inputs.at(static_cast<std::size_t>(taken)));
      isSpread = isSpread || !plan_.flows(*inputs.back());
    }
  }
  if (isSpread && task.spreadOver) {
    inputs.push_back(&*task.spreadOver);
  }
  return inputs;
}

std::vector<int> Schedule::upstreamOf(const std::vector<PassSink>& sinks) const {
  std::vector<bool> isUpstream(plan_.tasks.size(), false);
  for (const PassSink& sink : sinks) {
    isUpstream[at(sink.task)] = true;
  }
  for (int task = numTasks(); task-- > 0;) {
    if (isUpstream[at(task)]) {
      for (const PlanInput* input : inputsOf(task)) {
        if (input->task >= 0 && takesRows(task, *input)) {
          isUpstream[at(input->task)] = true;
        }
      }
    }
  }
  std::vector<int> upstream;
  for (int task = 0; task < numTasks(); ++task) {
    if (isUpstream[at(task)]) {
      upstream.push_back(task);
    }
  }
  return upstream;
}

/// Rows never flow to the client, nor to the condition of a choice. Those that another task makes
/// are needed whole before.
bool Schedule::takesRows(int index, const PlanInput& input) const {
  const PlanTask& task = plan_.task(index);
  const bool isCondition = task.spec->isChoice && &input == task.inputs.data();
  return !task.runsInClient && !isCondition &&
         (input.task < 0 ? plan_.flows(input) : plan_.flowsInPass(input));
}

void Schedule::want(int task, std::size_t output) {
  std::vector<std::size_t>& wanted = wanted_[at(task)];
  if (!isThere(task, output) && std::ranges::find(wanted, output) == wanted.end()) {
    wanted.push_back(output);
  }
}

void Schedule::findNeeds() {
  flows_.assign(plan_.tasks.size(), false);
  wanted_.assign(plan_.tasks.size(), {});
  for (const PlanResult& result : plan_.results) {
    if (result.isAsked) {
      want(result.task, result.output);
    }
  }
  for (int task = numTasks(); task-- > 0;) {
    if (!isNeeded(task)) {
      continue;
    }
    for (const std::size_t output : notAsked_[at(task)]) {
      want(task, output);
    }
    for (const PlanInput* input : inputsOf(task)) {
      if (input->task >= 0 && takesRows(task, *input)) {
        flows_[at(input->task)] = true;
      } else if (input->task >= 0) {
        want(input->task, input->output);
      }
    }
  }
}

/// Tasks of the client that can run one after the other, and choices whose condition is known then.
std::vector<int> Schedule::readyClientTasks() const {
  std::vector<bool> willBeThere(plan_.tasks.size(), false);
  std::vector<int> ready;
  for (int task = 0; task < numTasks(); ++task) {
    const bool isOpen = plan_.task(task).spec->isChoice && branchOf(task) == Branch::Unknown;
    if (!isNeeded(task) || (!isOpen && !plan_.task(task).runsInClient)) {
      continue;
    }
    if (std::ranges::all_of(inputsOf(task), [&](const PlanInput* input) {
          return isThere(*input) || willBeThere[at(input->task)];
        })) {
      ready.push_back(task);
      willBeThere[at(task)] = !isOpen;
    }
  }
  return ready;
}

void Schedule::followRows() {
  canFlow_.assign(plan_.tasks.size(), false);
  reads_.assign(plan_.tasks.size(), false);
  source_ = ownSource_;
  for (int task = 0; task < numTasks(); ++task) {
    if (isNeeded(task) && !plan_.task(task).runsInClient) {
      followRows(task);
    }
  }
}

void Schedule::followRows(int index) {
  const OpSpec& spec = *plan_.task(index).spec;
  bool canFlow = !spec.isChoice || branchOf(index) != Branch::Unknown;
  reads_[at(index)] = spec.source() != nullptr;
  for (const PlanInput* input : inputsOf(index)) {
    if (!takesRows(index, *input)) {
      canFlow = canFlow && isThere(*input);
    } else if (input->task >= 0) {
      const std::size_t from = at(input->task);
      canFlow = canFlow && canFlow_[from];
      int& source = source_[at(index)];
      if (source < 0 || source_[from] < 0) {
        source = std::max(source, source_[from]);
      } else {
        source = reads_[from] ? sources_.combined(source_[from], source)
                              : sources_.combined(source, source_[from]);
      }
      reads_[at(index)] = reads_[at(index)] || reads_[from];
    }
  }
  canFlow_[at(index)] = canFlow;
}

Round Schedule::readyPasses() {
  std::map<int, std::vector<PassSink>> inMemory;
  std::map<int, std::vector<PassSink>> ofData;
  for (int task = 0; task < numTasks(); ++task) {
    if (plan_.task(task).runsInClient || !canFlow_[at(task)]) {
      continue;
    }
    const bool isAggregate = !plan_.task(task).isPartitioned;
    for (const std::size_t output : wanted_[at(task)]) {
      auto& sinks = (reads_[at(task)] ? ofData : inMemory)[source_[at(task)]];
      if (!isAggregate || sinks.empty() || sinks.back().task != task) {
        sinks.push_back({task, output, isAggregate});
      }
    }
  }
  Round round{.readsData = inMemory.empty()};
  for (auto& [source, sinks] : inMemory.empty() ? ofData : inMemory) {
    round.passes.push_back(std::move(sinks));
  }
  return round;
}

}  // namespace kv::runtime
