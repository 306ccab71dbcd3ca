#pragma once

#include "class/ClassRecord.h"
#include "kv/host/session.h"

namespace kv::host {

/// The class as it was registered: its own members, in order. Needs none of its superclasses.
ClassDescription describeClass(const ClassRecord& record);

}  // namespace kv::host
