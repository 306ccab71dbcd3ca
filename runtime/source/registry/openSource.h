#pragma once

#include <memory>
#include <string_view>

#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The source that Datastore::describe() described. Opens nothing: each file is compared with its
/// description when it is read.
///
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const Datastore> openSource(std::string_view description);

}  // namespace kv::runtime
