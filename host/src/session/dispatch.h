#pragma once

#include "kcos/interned.h"
#include "kv/host/values.h"

namespace kv::host {

class ClassRecord;
struct SessionState;

/// Calls what `name` means, with the rights of the session's caller. In this order: a method
/// of the leftmost input that is an object whose class has a method of that name, a function, a
/// class constructor, a static method "Class.name", a builtin.
///
/// Errors: "KALVEX:UndefinedFunction" with the name; what the callee raises, native exceptions as
/// they are.
void callByName(SessionState& session, kcos::COSInternedBase name, const Call& call);

/// Calls a method of a class, static or not, with the rights of the session's caller.
/// Result: false, and nothing called, if the class has no such method with a body.
bool callMethod(SessionState& session, const ClassRecord& record, kcos::COSInternedBase name,
                const Call& call);

/// The same as bound calls: errors leave them as KExceptions, and no output is written then.
void callAtEdge(SessionState& session, kcos::COSInternedBase name, const Call& call);
bool callMethodAtEdge(SessionState& session, kcos::COSInternedBase className,
                      kcos::COSInternedBase name, const ClassRecord* rights, const Call& call);

}  // namespace kv::host
