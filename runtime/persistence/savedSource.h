#pragma once

#include <memory>
#include <string_view>

#include "kv/host/values.h"
#include "kv/runtime/Datastore.h"

/// The description of a source as a value that is saved.
namespace kv::runtime {

/// A uint8 column.
host::Value savedDescription(std::string_view bytes);

/// The source of a description; opens nothing.
///
/// Errors: "KALVEX:datastore:BadDescription".
std::shared_ptr<const Datastore> openSaved(const kxArray* description);

}  // namespace kv::runtime
