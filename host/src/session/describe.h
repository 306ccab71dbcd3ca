#pragma once

#include "kv/host/session.h"
#include "session/ClassRecord.h"

namespace kv::host {

/// The class as it was registered: its own members, in order. Its superclasses needn't be defined.
ClassDescription describeClass(const ClassRecord& record);

}  // namespace kv::host
