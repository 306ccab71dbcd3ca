#pragma once

#include <span>
#include <string>
#include <utility>

#include "class/ClassRecord.h"
#include "heap/Object.h"
#include "kv/host/values.h"

namespace kv::host {

struct SessionState;

/// Load construction: an object without a constructor of a language run, its properties set by
/// their setters in the order given, whatever their access; then told that it was loaded.
///
/// Errors: "KALVEX:class:NoSuchMember"; "KALVEX:UndefinedFunction" with a missing superclass.
Value loadInstance(SessionState& session, ClassRecord& record,
                   std::span<const std::pair<std::string, const kxArray*>> properties);

/// Copy construction: an object of the same class with the same stored properties. The C++ value of
/// an object isn't copied.
Value copyInstance(SessionState& session, Object& object);

}  // namespace kv::host
