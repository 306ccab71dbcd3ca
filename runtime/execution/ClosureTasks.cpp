#include "execution/ClosureTasks.h"

#include <utility>

namespace kv::runtime {
namespace {

using host::Value;

std::vector<Value> valuesOf(const kxArray* taskGraph, kcos::NameRef map) {
  const Value cell = host::call("values", {host::getProperty(taskGraph, map).get()});
  std::vector<Value> values;
  for (std::size_t i = 0; i < kxGetNumberOfElements(cell.get()); ++i) {
    values.push_back(matrix::sharedCopy(kxGetCell(cell.get(), i)));
  }
  return values;
}

}  // namespace

ClosureTasks::ClosureTasks(const kxArray* taskGraph)
    : closures_(valuesOf(taskGraph, "TaskToClosureMap")),
      tasks_(valuesOf(taskGraph, "ClosureToTaskMap")) {
  for (std::size_t i = 0; i < closures_.size(); ++i) {
    indexOf_.emplace(kcos::omGetArrayElement(closures_[i].get(), 0).get(), i);
  }
}

const kxArray* ClosureTasks::taskOf(const kxArray* closure) const {
  return task(indexOf_.at(kcos::omGetArrayElement(closure, 0).get()));
}

}  // namespace kv::runtime
