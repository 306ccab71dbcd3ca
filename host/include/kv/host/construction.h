#pragma once

#include "kv/host/values.h"

namespace kv::host {

/// The object whose constructor runs innermost in the current session; null if none runs. For code
/// that a constructor calls on behalf of the object being constructed.
KV_HOST_API Value objectUnderConstruction();

}  // namespace kv::host
