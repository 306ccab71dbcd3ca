#pragma once

#include "session/Members.h"

namespace kv::host {

/// True if code with the rights of `caller` (null: public code) may use a member of `owner`.
///
/// Private: code of the class itself. Protected: also of its subclasses, and of a superclass that
/// has a member of that name. `Immutable` and `None`, which are levels of setting, admit no one.
bool mayAccess(MemberAccess access, const ClassRecord& owner, kcos::COSInternedBase member,
               const ClassRecord* caller);

[[noreturn]] void raiseAccessDenied(const ClassRecord& owner, kcos::COSInternedBase member);
[[noreturn]] void raiseNoSuchMember(const ClassRecord& asked, kcos::COSInternedBase member);

}  // namespace kv::host
