#pragma once

#include <memory>

#include "kv/userPlace.h"

namespace kv::python {

/// The Python frames of the calling thread, without those of this package. Takes the interpreter's
/// lock.
std::unique_ptr<UserStack> makeUserStack();

}  // namespace kv::python
