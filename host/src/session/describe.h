#pragma once

#include "kv/host/session.h"
#include "session/ClassRecord.h"

namespace kv::host {

/// The class as it was registered: its own members, in order. Needs none of its superclasses.
ClassDescription describeClass(const ClassRecord& record);

}  // namespace kv::host
