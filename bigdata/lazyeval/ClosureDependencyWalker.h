#pragma once

#include <cstdint>
#include <deque>
#include <unordered_map>
#include <variant>
#include <vector>

#include "ki/KalvexManagedPtr.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"

namespace bigdata::lazyeval {

/// A node of the lazy graph.
using ClosureGraphNode =
    std::variant<ki::KalvexManagedPtr<Closure>, ki::KalvexManagedPtr<ClosureFuture>,
                 ki::KalvexManagedPtr<ClosurePromise>>;

/// Sorts the nodes that some roots reach so that every node comes after all that it depends on: a
/// depth-first post-order with an explicit stack.
///
/// 1. A promise that is done is a leaf: its closure isn't followed.
/// 2. The promises of a closure and their futures come right after it, consumed or not.
/// 3. The order depends only on the order of roots, inputs and outputs. The stack is last-in
///    first-out: the last input is followed first, the last output is finished first.
/// 4. Several walks of one walker share the set of visited nodes and extend `nodes`.
///
/// Errors:  "KALVEX:class:InvalidHandle" for a deleted object, or a link that leads nowhere, on the
///          way; an internal error that names a closure which depends on itself. The walker must
///          not be used afterwards.
/// Cost:    amortised O(1) per node and edge; no native recursion; ids aren't read.
class ClosureDependencyWalker {
 public:
  void walk(ClosureGraphNode root);

  /// The nodes in the order in which they were finished.
  const std::vector<ClosureGraphNode>& nodes() const { return nodes_; }

 private:
  /// Why a node is on the stack.
  enum class Phase : std::uint32_t {
    Start = 0,     ///< a root
    Forward = 1,   ///< reached from its producer, whose upstream is already being processed
    Backward = 2,  ///< reached from its consumer: its upstream must be explored, not its siblings
    Finish = 3,    ///< second visit: its dependencies are done
  };

  enum class State : std::uint8_t {
    Open,      ///< a closure whose inputs are being explored: reaching it again means a cycle
    Finished,  ///< listed in `nodes_`
  };

  struct Entry {
    ClosureGraphNode node;
    Phase phase;
  };

  void run();
  void visit(const ki::KalvexManagedPtr<Closure>& closure, Phase phase);
  void visit(const ki::KalvexManagedPtr<ClosureFuture>& future, Phase phase);
  void visit(const ki::KalvexManagedPtr<ClosurePromise>& promise, Phase phase);

  void push(ClosureGraphNode node, Phase phase);
  void pushUnlessVisited(ClosureGraphNode node, Phase phase);
  void finish(ClosureGraphNode node);
  bool isFinished(const void* node) const;

  std::vector<ClosureGraphNode> nodes_;
  /// By address of the native object, which `nodes_` or `stack_` keeps alive.
  std::unordered_map<const void*, State> states_;
  std::deque<Entry> stack_;
};

}  // namespace bigdata::lazyeval
