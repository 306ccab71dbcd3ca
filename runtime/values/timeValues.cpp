#include "kv/runtime/timeValues.h"

#include <cassert>

#include "column/elementTypes.h"
#include "values/hostNames.h"

namespace kv::runtime {

host::Value makeTimes(ElementType type, host::Value microseconds) {
  assert(isTime(type) && kxGetClassID(microseconds.get()) == kxINT64_CLASS);
  return type == ElementType::Duration ? host::call(kDuration, {microseconds.get()})
                                       : host::call(kDateTime, {microseconds.get()});
}

const TimeArray* timesIn(const kxArray* value) {
  const bool isOne = kcos::omIsKCOS(value) && kxIsScalar(value) &&
                     (kxIsA(value, kDateTime) || kxIsA(value, kDuration));
  return isOne ? dynamic_cast<const TimeArray*>(host::getNativeValue(value)) : nullptr;
}

const kxArray* shapedElements(const kxArray* value) {
  const TimeArray* times = timesIn(value);
  return times != nullptr ? times->microseconds.get() : value;
}

}  // namespace kv::runtime
