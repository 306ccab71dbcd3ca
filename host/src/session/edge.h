#pragma once

#include <utility>

namespace kv::host {

/// Throws the exception that is being handled as one that may cross an edge of the host: a
/// KException in its envelope, made from id and arguments if the exception has them; a PassThrough
/// unchanged; an OutOfMemory where no memory is left for a KException.
///
/// Requires: called inside a handler.
[[noreturn]] void throwAtEdge();

/// Runs `body` as a bound call: native exceptions leave it as KExceptions.
template <class Body>
decltype(auto) atEdge(Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    throwAtEdge();
  }
}

}  // namespace kv::host
