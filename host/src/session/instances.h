#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "heap/Object.h"
#include "kv/host/values.h"
#include "session/ClassRecord.h"

namespace kv::host {

struct SessionState;

/// Load construction: an object without a constructor of a language run, its properties set by
/// their setters in the order given, whatever their access; then notified that it was loaded.
///
/// Errors: "KALVEX:class:NoSuchMember"; "KALVEX:UndefinedFunction" with a missing superclass.
Value loadInstance(SessionState& session, ClassRecord& record,
                   std::span<const std::pair<std::string, const kxArray*>> properties);

/// Copy construction: an object of the same class with the same stored properties. The C++ value of
/// an object isn't copied. The copy of one that was loaded without trust is no more trusted.
Value copyInstance(SessionState& session, Object& object);

// The steps of both, which saving and loading files share.

/// The properties that a copy or a file takes over: those that are stored and can be set, those of
/// superclasses first.
/// Lives: the places until the class or a superclass is defined anew.
std::vector<PropertyPlace> storedProperties(const ClassRecord& record);

/// An object with its slots at their defaults and the native part that a loader fills.
kcos::COSInterfacePtr makeShell(SessionState& session, ClassRecord& record);

/// Notifies the native class of a filled shell.
void notifyLoaded(Object& object);

/// The saved form of the class, inherited or its own; null if it has none.
const SavedForm* savedFormOf(const ClassRecord& record);

}  // namespace kv::host
