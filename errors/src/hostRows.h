#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids that the host itself raises.
inline constexpr ErrorRow kHostRows[] = {
    // Calls.
    {"KALVEX:UndefinedFunction", "name", "Undefined function or class '{0}'."},
    {"KALVEX:TooManyOutputs", "", "Too many output arguments.", BaseType::Type},
    {"KALVEX:TooManyInputs", "", "Too many input arguments.", BaseType::Type},
    {"KALVEX:NotEnoughInputs", "", "Not enough input arguments.", BaseType::Type},
    {"KALVEX:OutOfMemory", "", "Out of memory.", BaseType::Memory},
    {"KALVEX:RecursionLimit", "calls",
     "Calls are nested too deeply: {0}. A function may be calling itself without end."},
    {"KALVEX:NativeException", "text", "{0}"},
    {"KALVEX:CountTooLarge", "count, limit", "A count of {0} is too large: the limit is {1}.",
     BaseType::Value},

    // Classes and objects.
    {"KALVEX:class:InvalidHandle", "", "Invalid or deleted object.", BaseType::Value},
    {"KALVEX:class:NoSuchMember", "class, member", "Class '{0}' has no property or method '{1}'."},
    {"KALVEX:class:AccessDenied", "class, member",
     "The property or method '{1}' of class '{0}' can't be accessed from here."},
    {"KALVEX:class:AbstractClass", "class, members",
     "No object of class '{0}' can be created: it is abstract until a class defines {1}.",
     BaseType::Type},
    {"KALVEX:class:SealedClass", "class",
     "Class '{0}' is sealed: it can be neither derived from nor redefined.", BaseType::Type},
    {"KALVEX:class:HasInstances", "class",
     "Class '{0}' can't be redefined while it has instances."},
    {"KALVEX:class:InvalidSuperclass", "class, superclass, reason",
     "Class '{0}' can't have the superclass '{1}': {2}.", BaseType::Type},

    // Sessions.
    {"KALVEX:session:Closed", "", "The session is closed."},
    {"KALVEX:session:WrongThread", "", "The session belongs to the thread that created it."},
    {"KALVEX:session:NotAlone", "",
     "A session that keeps its classes per process must be the only one that is open."},

    // Save and load.
    {"KALVEX:save:NotSaveable", "class, reason", "An object of class '{0}' can't be saved: {1}.",
     BaseType::Type},
    {"KALVEX:save:CannotWrite", "path, reason", "'{0}' can't be written: {1}.", BaseType::System},
    {"KALVEX:load:CannotRead", "path, reason", "'{0}' can't be read: {1}.", BaseType::System},
    {"KALVEX:load:Corrupt", "section, offset, reason",
     "Corrupt data in section '{0}' at offset {1}: {2}.", BaseType::Value},
    {"KALVEX:load:LaterFormat", "release of the file, its format, release, format",
     "The file was made by a later release, {0}: it has format {1}, and this release, {2}, reads "
     "format {3}.",
     BaseType::Value},
    {"KALVEX:load:UnknownClass", "class", "The saved class '{0}' isn't defined."},
    {"KALVEX:load:NotTrusted", "what",
     "'{0}' was loaded without trust and can't be evaluated: load it as trusted first."},
};

}  // namespace kv::errors
