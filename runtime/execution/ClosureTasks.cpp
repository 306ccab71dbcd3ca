#include "execution/ClosureTasks.h"

#include <utility>

#include "kv/host/errors.h"

namespace kv::runtime {
namespace {

using host::Value;

Value elementOf(const kxArray* objects, std::size_t index) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(objects, index)));
}

}  // namespace

ClosureTasks::ClosureTasks(const kxArray* taskGraph) {
  const Value tasks = host::getProperty(taskGraph, "Tasks");
  for (std::size_t i = 0; i < kxGetNumberOfElements(tasks.get()); ++i) {
    const Value task = elementOf(tasks.get(), i);
    const Value closures = host::getProperty(task.get(), "Closures");
    for (std::size_t k = 0; k < kxGetNumberOfElements(closures.get()); ++k) {
      Value closure = elementOf(closures.get(), k);
      const auto* object = kcos::omGetArrayElement(closure.get(), 0).get();
      if (indexOf_.emplace(object, closures_.size()).second) {
        closures_.push_back(std::move(closure));
        tasks_.push_back(matrix::sharedCopy(task.get()));
      }
    }
  }
}

const kxArray* ClosureTasks::taskOf(const kxArray* closure) const {
  const auto found = indexOf_.find(kcos::omGetArrayElement(closure, 0).get());
  if (found == indexOf_.end()) {
    const Value operation = host::getProperty(closure, "Operation");
    host::raise("KALVEX:bigdata:array:InternalError",
                {"createExecutionTasks of " + kxGetClassName(operation.get()) + " gave no task"});
  }
  return task(found->second);
}

}  // namespace kv::runtime
