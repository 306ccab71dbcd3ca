#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "kv/host/values.h"
#include "values/objects.h"

namespace kv::runtime {

/// The closures of a task graph and the output task of each, identified by object: an array and its
/// opened copy have closures of one id. The planner notes them in the graph while it is made, since
/// a task of a user's own class may be in several graphs.
///
/// Lives: on its own; it keeps closures and tasks alive.
class ClosureTasks {
 public:
  /// Slots of the class of task graphs, for the notes: the number of closures, and two columns with
  /// room for more.
  static constexpr std::array<kcos::NameRef, 3> kSlots{"NumPlanned", "PlannedClosures",
                                                       "PlannedTasks"};

  /// Notes in a graph under construction which task makes the outputs of `closure`. A closure has
  /// one note in a graph. In constant time on average.
  static void note(const kxArray* taskGraph, const kcos::COSInterfacePtr& closure,
                   const kcos::COSInterfacePtr& task);

  /// `taskGraph`: a LazyTaskGraph.
  /// Errors: "KALVEX:validateattributes:invalidType" for another value.
  explicit ClosureTasks(const kxArray* taskGraph);

  std::size_t size() const { return closures_.size(); }
  const kxArray* closure(std::size_t index) const { return closures_[index].get(); }
  const kxArray* task(std::size_t index) const { return tasks_[index].get(); }

  /// The output task of a closure.
  /// Errors: "KALVEX:bigdata:array:InternalError" for a closure that has none in the graph.
  const kxArray* taskOf(const kxArray* closure) const;

 private:
  std::vector<host::Value> closures_;
  std::vector<host::Value> tasks_;
  ObjectNumbers numbers_;
};

/// Whether the outputs of a task are materialised values: its partition strategy is broadcast.
bool hasBroadcastOutput(const kxArray* task);

}  // namespace kv::runtime
