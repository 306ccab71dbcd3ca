#pragma once

#include <memory>

#include "kv/host/values.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// A host object of the class for the format of a source, as the core takes it.
host::Value datastoreObject(std::shared_ptr<const Datastore> source);

}  // namespace kv::runtime
