#pragma once

#include "heap/Object.h"
#include "kv/host/values.h"
#include "session/Members.h"

namespace kv::host {

struct SessionState;

/// Runs a method whose counts and access have been checked. `target` is the object that the call
/// was dispatched on; null for a static method. The method checks the types of its inputs, its
/// object included, which may be elsewhere among them.
///
/// Errors: what the method raises.
void invokeMethod(SessionState& session, const Method& method, const Call& call, Object* target);

/// Runs a native constructor on the object that `self` refers to.
void invokeConstructor(SessionState& session, const Method& method, const kxArray* self,
                       const Call& call);

/// Runs a body with the rights of a class, or of public code (null).
void runBody(SessionState& session, const NativeBody& body, const ClassRecord* rights,
             const Call& call);

}  // namespace kv::host
