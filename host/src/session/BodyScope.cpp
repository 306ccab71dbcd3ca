#include "session/BodyScope.h"

#include <string>

#include "kv/host/errors.h"

namespace kv::host {

constinit thread_local int BodyScope::running_ = 0;

void BodyScope::refuse() { raise("KALVEX:RecursionLimit", {std::to_string(running_)}); }

}  // namespace kv::host
