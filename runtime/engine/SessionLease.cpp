#include "kv/runtime/SessionLease.h"

namespace kv::runtime {

SessionLease::Released::~Released() = default;

SessionLease::~SessionLease() = default;

}  // namespace kv::runtime
