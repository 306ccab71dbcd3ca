#include "session/trust.h"

#include <algorithm>

#include "heap/FunctionValue.h"
#include "kv/host/errors.h"
#include "session/SessionState.h"
#include "session/objects.h"

namespace kv::host {

void refuseGuarded(const SessionState& session, const Method& method, const Object& object) {
  const ClassRecord& record = classOf(object);
  if (std::ranges::any_of(session.guardedMethods, [&](const GuardedMethod& guarded) {
        return guarded.name == method.name && record.isA(guarded.className);
      })) {
    raise("KALVEX:load:NotTrusted", {std::string(record.getName())});
  }
}

bool isTrusted(const kxArray* value) noexcept {
  const FunctionValue* function = functionValue(value);
  const Object* object = scalarObject(value);
  return (function == nullptr || !function->isUntrusted) &&
         (object == nullptr || !object->isUntrusted());
}

void requireTrusted(const kxArray* value, std::string_view what) {
  if (!isTrusted(value)) {
    raise("KALVEX:load:NotTrusted", {std::string(what)});
  }
}

}  // namespace kv::host
