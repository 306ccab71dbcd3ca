#pragma once

#include <vector>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyArrayPtr.h"
#include "ki/PropertyPtr.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::optimizer {

/// A snapshot of the lazy graph behind some arrays, as a `digraph` of the host. It is for
/// inspection: it changes nothing and doesn't follow later changes.
///
/// Nodes are in the order of the walk (see ClosureDependencyWalker). Edges are sorted by name and
/// point the way the data flows: future to closure, closure to promise, promise to future. A
/// promise that is done has no edge from its closure.
class ClosureGraph final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.optimizer.ClosureGraph";

  /// Empty, for load.
  explicit ClosureGraph(const ki::KalvexManagedConstructInfo& info);

  /// From lazy arrays.
  ///
  /// Errors: an internal error for an input of another class; those of `recalculate`.
  ClosureGraph(const ki::KalvexManagedConstructInfo& info, int nrhs, const kxArray** prhs);

  const kxArray* getGraph() const { return graph_.get(); }
  void setGraph(matrix::ArrayPtr graph);

  /// One future per array, in order, duplicates kept.
  const std::vector<ki::PropertyPtr<lazyeval::ClosureFuture>>& getFutures() const {
    return futures_;
  }
  /// Doesn't recalculate.
  void setFutures(std::vector<ki::KalvexManagedPtr<lazyeval::ClosureFuture>> futures);

  /// Takes a new snapshot.
  ///
  /// Errors: those of the walk and of the host's "digraph", "table" and "categorical"; the old
  ///         snapshot stays.
  void recalculate();

 private:
  ki::PropertyArrayPtr graph_;
  std::vector<ki::PropertyPtr<lazyeval::ClosureFuture>> futures_;
};

}  // namespace bigdata::optimizer
