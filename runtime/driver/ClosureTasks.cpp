#include "driver/ClosureTasks.h"

#include <algorithm>
#include <utility>

#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Value;

constexpr std::size_t kFirstRoom = 16;

/// Sets element `index` of an object column in a slot, which doubles when it is full.
void setInSlot(const kxArray* object, kcos::NameRef slot, std::size_t index,
               kcos::NameRef className, const kcos::COSInterfacePtr& element) {
  Value column = host::getSlot(object, slot);
  const std::size_t room = kxGetNumberOfElements(column.get());
  if (index >= room) {
    Value larger = matrix::from_kalvex(kcos::omCreateKCOSMatrix(
        std::max(kFirstRoom, 2 * room), 1, kcos::internal::makeInterned(className)));
    for (std::size_t i = 0; i < room; ++i) {
      kcos::omSetArrayElement(larger.get(), i, kcos::omGetArrayElement(column.get(), i));
    }
    column = std::move(larger);
  }
  kcos::omSetArrayElement(column.get(), index, element);
  host::setSlot(object, slot, std::move(column));
}

}  // namespace

void ClosureTasks::note(const kxArray* taskGraph, const kcos::COSInterfacePtr& closure,
                        const kcos::COSInterfacePtr& task) {
  const Value before = host::getSlot(taskGraph, kSlots[0]);
  const std::size_t count =
      kxIsEmpty(before.get()) ? 0 : static_cast<std::size_t>(kxGetScalar(before.get()));
  setInSlot(taskGraph, kSlots[1], count, kClosure, closure);
  setInSlot(taskGraph, kSlots[2], count, kExecutionTask, task);
  host::setSlot(taskGraph, kSlots[0], host::makeDouble(static_cast<double>(count + 1)));
}

ClosureTasks::ClosureTasks(const kxArray* taskGraph) {
  if (!kxIsA(taskGraph, kLazyTaskGraph)) {
    host::raiseInvalidType("Input", kLazyTaskGraph, taskGraph);
  }
  const Value closures = host::getSlot(taskGraph, kSlots[1]);
  const Value tasks = host::getSlot(taskGraph, kSlots[2]);
  for (std::size_t i = 0;; ++i) {
    const kcos::COSInterfacePtr closure = kcos::omGetArrayElement(closures.get(), i);
    const kcos::COSInterfacePtr task = kcos::omGetArrayElement(tasks.get(), i);
    if (closure.get() == nullptr || task.get() == nullptr) {
      break;  // room for more, or the end
    }
    numbers_.add(closure.get(), i);
    closures_.push_back(matrix::from_kalvex(kcos::omCreateKCOSScalar(closure)));
    tasks_.push_back(matrix::from_kalvex(kcos::omCreateKCOSScalar(task)));
  }
}

const kxArray* ClosureTasks::taskOf(const kxArray* closure) const {
  const auto number = numbers_.of(closure);
  if (!number) {
    const Value operation = host::getProperty(closure, "Operation");
    host::raise("KALVEX:bigdata:array:InternalError",
                {"createExecutionTasks of " + kxGetClassName(operation.get()) + " gave no task"});
  }
  return task(*number);
}

bool hasBroadcastOutput(const kxArray* task) {
  const Value strategy = host::getProperty(task, "OutputPartitionStrategy");
  return kcos::omIsKCOS(strategy.get()) &&
         host::toLogical(host::getProperty(strategy.get(), "IsBroadcast").get());
}

}  // namespace kv::runtime
