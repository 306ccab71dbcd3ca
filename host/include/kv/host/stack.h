#pragma once

#include "kv/host/export.h"

namespace kv::host {

/// True if less of the calling thread's native stack is left than a call, with all calls that it
/// may make, needs: 96 KiB. False on a stack that a library switched to, of which nothing is known.
///
/// For code that recurses as deeply as its input is nested.
/// Cost: a few instructions, except for the first call on a thread.
KV_HOST_API bool isStackLow() noexcept;

}  // namespace kv::host
