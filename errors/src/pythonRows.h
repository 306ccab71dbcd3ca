#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of the Python module.
inline constexpr ErrorRow kPythonRows[] = {
    {"KALVEX:session:InUse", "", "The session can't be closed while a call runs in it."},
    {"KALVEX:session:OtherSession", "", "The value belongs to another session.", BaseType::Value},
    {"KALVEX:session:Forked", "",
     "Arrays that were made before a fork can't be used in the child process. Start the process "
     "with \"spawn\" or \"forkserver\", and make the arrays there."},
    {"KALVEX:session:Ambiguous", "function, sessions",
     "Function '{0}' isn't bound to a session, and {1} sessions are open on this thread: call "
     "it by name through one of them, as session.call('{0}', ...)."},
};

}  // namespace kv::errors
