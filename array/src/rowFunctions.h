#pragma once

#include "kv/host/session.h"

namespace kv {

/// Defines the functions that `selectPlaces` and `aggregateRows` record, so that saved arrays find
/// them by name.
void defineRowFunctions(host::Session& session);

}  // namespace kv
