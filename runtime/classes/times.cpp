// datetime(microseconds) and duration(microseconds): arrays of times of any size, as results and as
// arguments of users' functions.

#include <memory>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/host/errors.h"
#include "kv/runtime/timeValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

template <ElementType type>
void setElements(const kxArray* object, const kxArray* microseconds) {
  if (kxGetClassID(microseconds) != kxINT64_CLASS) {
    host::raiseInvalidType("Input", "int64", microseconds);
  }
  host::setNativeValue(object, std::make_unique<TimeArray>(type, matrix::sharedCopy(microseconds)));
}

template <ElementType type>
void construct(const Call& call) {
  setElements<type>(call.in(0), call.in(1));
}

Value microsecondsOf(const kxArray* object) {
  return matrix::sharedCopy(
      host::nativeValue<TimeArray>(object, "scalar datetime or duration").microseconds.get());
}

template <ElementType type>
host::ClassDefinition timeClass(const char* name) {
  return {.name = name,
          .properties = {computed(
              "Microseconds", [](const Call& call) { call.out(0, microsecondsOf(call.in(0))); })},
          .constructor = constructor(construct<type>, 2, 2),
          .savedForm = host::SavedForm{microsecondsOf, setElements<type>}};
}

}  // namespace

void defineTimes(host::Session& session) {
  define(session, timeClass<ElementType::DateTime>(kDateTime));
  define(session, timeClass<ElementType::Duration>(kDuration));
}

}  // namespace kv::runtime
