#pragma once

#include "heap/Object.h"
#include "session/Members.h"

namespace kv::host {

struct SessionState;

/// Refuses a guarded method of an object that was loaded without trust.
/// Errors: "KALVEX:load:NotTrusted" with the object's class.
void refuseGuarded(const SessionState& session, const Method& method, const Object& object);

}  // namespace kv::host
