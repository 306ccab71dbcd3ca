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

/// Puts what some roots reach into one order in which every node stands behind all that it depends
/// on: a depth-first post-order on an explicit stack.
///
/// 1. A promise that is done is a leaf: its closure isn't followed.
/// 2. The promises of a closure and their futures stand right behind it, consumed or not.
/// 3. The order follows from the order of roots, inputs and outputs alone. The stack is last-in
///    first-out: the last input is followed first, the last output is finished first.
/// 4. Several walks of one walker share what was visited and extend `nodes`.
///
/// Errors:  "KALVEX:class:InvalidHandle" for a deleted object, or a link that leads nowhere, on the
///          way; an internal error that names a closure which depends on itself. The walker is of
///          no use afterwards.
/// Cost:    amortised O(1) a node and edge; no native recursion, no reading of ids.
class ClosureDependencyWalker {
 public:
  void walk(ClosureGraphNode root);

  /// The nodes in the order in which they were finished.
  const std::vector<ClosureGraphNode>& nodes() const { return nodes_; }

 private:
  /// Why a node stands on the stack.
  enum class Phase : std::uint32_t {
    Start = 0,     ///< a root
    Forward = 1,   ///< reached from its producer, whose upstream is already being dealt with
    Backward = 2,  ///< reached from its consumer: its upstream has to be explored, not its siblings
    Finish = 3,    ///< second visit, with its dependencies done
  };

  enum class State : std::uint8_t {
    Open,      ///< a closure whose inputs are being explored: to reach it from there is a cycle
    Finished,  ///< stands in `nodes_`
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
