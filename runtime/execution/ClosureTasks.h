#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "kv/host/values.h"

namespace kv::runtime {

/// The closures of a task graph and the output task of each, identified by object: an array and its
/// opened copy have closures of one id. The planner notes them with the tasks.
///
/// Lives: on its own; it keeps closures and tasks alive.
class ClosureTasks {
 public:
  /// `taskGraph`: a LazyTaskGraph.
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
  std::unordered_map<const kcos::COSInterface*, std::size_t> indexOf_;
};

}  // namespace kv::runtime
