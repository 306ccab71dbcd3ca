#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "plan/Plan.h"
#include "plan/RowSources.h"

namespace kv::runtime {

/// A result of a pass: an aggregate, or an output whose rows are kept.
struct PassSink {
  int task = 0;
  std::size_t output = 0;
  bool isAggregate = false;
};

/// Which branch of a choice is needed.
enum class Branch : std::uint8_t { Unknown, First, Second, Both };

/// What can be done next: tasks of the client, or passes over rows.
struct Round {
  std::vector<int> clientTasks{};               ///< in dependency order
  std::vector<std::vector<PassSink>> passes{};  ///< each over the rows of one source
  bool readsData = false;                       ///< false: the rows are all in memory
};

/// Runs through a plan by demand: round by round, what the results need and what can be done. Of a
/// choice only the condition is needed until its branch is known, and then only that branch.
///
/// Lives: within the plan's life.
class Schedule {
 public:
  explicit Schedule(const Plan& plan);

  /// What to do now; none when all results that were asked for are there. Client tasks come first,
  /// then rows in memory, and data last, so that few passes read it.
  ///
  /// Requires: all of the round before was done and noted here.
  /// Cost: linear in the size of the plan.
  std::optional<Round> next();

  /// The tasks that the results need, as far as is known; as of the last `next`.
  bool isNeeded(int task) const { return flows_[at(task)] || !wanted_[at(task)].empty(); }

  Branch branchOf(int task) const { return branches_[at(task)]; }
  void setBranch(int task, Branch branch) { branches_[at(task)] = branch; }

  /// Notes that all outputs of a task, or one whose rows were kept, are there.
  void setDone(int task) { isDone_[at(task)] = true; }
  void setKept(int task, std::size_t output) { kept_.emplace(task, output); }

  /// The inputs that a task takes: all; of a choice those that its branch needs.
  using Inputs = boost::container::small_vector<const PlanInput*, 4>;
  Inputs inputsOf(int task) const;

  /// The sinks of a pass and all tasks whose rows flow to them, in dependency order.
  std::vector<int> upstreamOf(const std::vector<PassSink>& sinks) const;

 private:
  static std::size_t at(int task) { return static_cast<std::size_t>(task); }
  int numTasks() const { return static_cast<int>(plan_.tasks.size()); }
  bool isThere(const PlanInput& input) const { return isThere(input.task, input.output); }
  bool isThere(int task, std::size_t output) const {
    return task < 0 || isDone_[at(task)] || kept_.contains({task, output});
  }
  void findOwnSources();
  bool takesRows(int task, const PlanInput& input) const;
  void findNeeds();
  void want(int task, std::size_t output);
  std::vector<int> readyClientTasks() const;
  void followRows();
  void followRows(int task);
  Round readyPasses();

  const Plan& plan_;
  RowSources sources_;
  std::vector<bool> isDone_;
  std::set<std::pair<int, std::size_t>> kept_;
  std::vector<Branch> branches_;
  std::vector<std::vector<std::size_t>> notAsked_;  ///< outputs to keep where their rows flow
  std::vector<int> ownSource_;  ///< of a task that reads, or takes rows that are there; else -1

  // Of the round at hand, by task.
  std::vector<bool> flows_;                       ///< its rows flow to what is needed
  std::vector<std::vector<std::size_t>> wanted_;  ///< outputs that are needed whole, not there yet
  std::vector<bool> canFlow_;                     ///< all that its rows need is there
  std::vector<bool> reads_;                       ///< its rows are read from data
  std::vector<int> source_;                       ///< its rows are from, as a number
};

}  // namespace kv::runtime
