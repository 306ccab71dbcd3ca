#pragma once

#include <memory>

#include "kv/host/values.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The C++ value of a datastore object.
struct DatastoreValue final : host::NativeValue {
  explicit DatastoreValue(std::shared_ptr<const Datastore> value) : datastore(std::move(value)) {}

  std::shared_ptr<const Datastore> datastore;
};

/// The source of a datastore object.
/// Errors: "KALVEX:validateattributes:invalidType" for anything else.
inline const std::shared_ptr<const Datastore>& datastoreOf(const kxArray* object) {
  return host::nativeValue<DatastoreValue>(object, "scalar kalvex.io.Datastore").datastore;
}

}  // namespace kv::runtime
