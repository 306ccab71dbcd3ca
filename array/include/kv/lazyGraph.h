#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kv/array.h"

/// What has been recorded and not computed, to be looked at.
namespace kv {

/// The lazy graph behind some arrays: closures that are to be run, promises of what they will give,
/// and the futures through which arrays wait for these.
struct LazyGraph {
  enum class Kind : std::uint8_t { Closure, Promise, Future };

  struct Node {
    std::string name;  ///< no other node has it
    Kind kind = Kind::Closure;
    std::string operation;  ///< of a closure: full name of its operation's class
    StackFrame place;       ///< of a closure: where the user recorded it; no file if unknown
  };

  /// Numbers of nodes; what stands at `to` depends on what stands at `from`.
  struct Edge {
    std::size_t from = 0;
    std::size_t to = 0;
  };

  std::vector<Node> nodes;           ///< each behind all that it depends on
  std::vector<Edge> edges;           ///< in the order of their nodes
  std::vector<std::size_t> results;  ///< the future of each array that was asked about
};

/// The graph that `Session::gather` would plan and run; behind what is computed already nothing is
/// left. Reads no data.
/// Errors: Error "KALVEX:array:NoArray", "KALVEX:array:TwoSessions".
LazyGraph lazyGraph(std::span<const Array> arrays, Where where = Where::current());

/// The files that gathering the arrays would read, each once, as they stand in the file system:
/// plans show them as their user called them, and a saved array may call them anything.
/// Errors: as lazyGraph.
std::vector<std::string> sourceFiles(std::span<const Array> arrays, Where where = Where::current());

}  // namespace kv
