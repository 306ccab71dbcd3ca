#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kv/array.h"

/// What has been recorded but not computed, for inspection.
namespace kv {

/// The lazy graph of some arrays: closures that will run, promises of their results, and the
/// futures through which arrays wait for these.
struct LazyGraph {
  enum class Kind : std::uint8_t { Closure, Promise, Future };

  struct Node {
    std::string name;  ///< unique
    Kind kind = Kind::Closure;
    std::string operation;  ///< for a closure: full name of its operation's class
    StackFrame place;       ///< for a closure: where the user recorded it; no file if unknown
  };

  /// Indices of nodes; node `to` depends on node `from`.
  struct Edge {
    std::size_t from = 0;
    std::size_t to = 0;
  };

  std::vector<Node> nodes;           ///< each after all that it depends on
  std::vector<Edge> edges;           ///< in the order of their nodes
  std::vector<std::size_t> results;  ///< the future of each requested array
};

/// The graph that `Session::gather` would plan and run. Nothing upstream of a computed value is in
/// it. Reads no data.
/// Errors: Error "KALVEX:array:NoArray", "KALVEX:array:TwoSessions".
LazyGraph lazyGraph(std::span<const Array> arrays, Where where = Where::current());

/// The files that gathering the arrays would read, each once, with their paths in the file system.
/// (Plans show the paths that the user gave, and a saved array may contain any text there.)
/// Errors: as lazyGraph.
std::vector<std::string> sourceFiles(std::span<const Array> arrays, Where where = Where::current());

/// Where an array comes from.
struct Origin {
  std::vector<std::string> sources;  ///< files and, of rows in memory, what messages call them
  StackFrame place;                  ///< the line that recorded it; empty if its value is known
};

/// Opens no file, and takes less time than lazyGraph.
Origin originOf(const Array& array, Where where = Where::current());

}  // namespace kv
