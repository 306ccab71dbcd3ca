#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "kv/host/values.h"

namespace kv::runtime {

/// The closures of a task graph and the output task of each, told apart by object: an array and its
/// opened copy have closures of one id.
///
/// Lives: on its own; it keeps closures and tasks alive.
class ClosureTasks {
 public:
  /// `taskGraph`: a LazyTaskGraph, whose two maps have an entry a closure in one order.
  explicit ClosureTasks(const kxArray* taskGraph);

  std::size_t size() const { return closures_.size(); }
  const kxArray* closure(std::size_t index) const { return closures_[index].get(); }
  const kxArray* task(std::size_t index) const { return tasks_[index].get(); }

  /// The output task of a closure of the graph.
  /// Errors: std::out_of_range for another closure.
  const kxArray* taskOf(const kxArray* closure) const;

 private:
  std::vector<host::Value> closures_;
  std::vector<host::Value> tasks_;
  std::unordered_map<const kcos::COSInterface*, std::size_t> indexOf_;
};

}  // namespace kv::runtime
