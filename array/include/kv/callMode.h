#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "kv/array.h"

namespace kv {

/// Where a user's function is called.
enum class CallMode : std::uint8_t {
  Session,    ///< on the thread that gathers, which has the session; one call at a time
  AnyThread,  ///< on the threads that read, several calls at once
};

/// `map` of a function that may be called elsewhere. For AnyThread it must be safe to call from
/// several threads, and what it returns must depend on its inputs alone; it may gather.
///
/// Errors: those of map().
Array map(std::string name, BlockFunction function, std::span<const Array> inputs, CallMode mode,
          Where where = Where::current());

}  // namespace kv
