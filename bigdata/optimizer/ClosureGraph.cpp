#include "optimizer/ClosureGraph.h"

#include <utility>

#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/ClosureDependencyWalker.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "optimizer/graphTables.h"
#include "util/InternalError.h"

namespace bigdata::optimizer {

using ki::KalvexManagedPtr;
using lazyeval::ClosureFuture;
using matrix::ArrayPtr;

ClosureGraph::ClosureGraph(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

ClosureGraph::ClosureGraph(const ki::KalvexManagedConstructInfo& info, int nrhs,
                           const kxArray** prhs)
    : KalvexManagedObject(info) {
  for (int i = 0; i < nrhs; ++i) {
    if (!kxIsA(prhs[i], ki::classKey<lazyeval::LazyPartitionedArray>())) {
      throwInternalError(
          "ClosureGraph expects all inputs to be of type "
          "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray");
    }
    const ArrayPtr future = ki::readHostProperty(prhs[i], "ValueFuture");
    futures_.emplace_back(selfInterface(),
                          ki::fromArray<KalvexManagedPtr<ClosureFuture>>(future.get()));
  }
  recalculate();
}

void ClosureGraph::setGraph(ArrayPtr graph) {
  graph_ = ki::adoptPropertyArray(selfInterface(), std::move(graph));
}

void ClosureGraph::setFutures(std::vector<KalvexManagedPtr<ClosureFuture>> futures) {
  futures_.clear();
  futures_.reserve(futures.size());
  for (const KalvexManagedPtr<ClosureFuture>& future : futures) {
    futures_.emplace_back(selfInterface(), future);
  }
}

void ClosureGraph::recalculate() {
  lazyeval::ClosureDependencyWalker walker;
  for (const auto& future : futures_) {
    walker.walk(future.lock());
  }
  NodeNames names(walker.nodes());
  const ArrayPtr nodes = makeNodeTable(walker.nodes(), names);
  const ArrayPtr edges = makeEdgeTable(walker.nodes(), names);
  setGraph(ki::callHost("digraph", {edges.get(), nodes.get()}));
}

namespace {

class ClosureGraphCosClassInfo final : public ki::KalvexManagedCosClassInfo<ClosureGraph> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using ki::Access;
    ki::CosClassBuilder<ClosureGraph>(cls)
        .constructor<>(Access::Private)
        .variadicConstructor(Access::Public)
        .property("Graph", &ClosureGraph::getGraph, &ClosureGraph::setGraph, Access::Public,
                  Access::Private)
        .property("Futures", &ClosureGraph::getFutures, &ClosureGraph::setFutures, Access::Public,
                  Access::Private)
        .method("recalculate", &ClosureGraph::recalculate);
  }
};

const ki::ClassKcosRegistration<ClosureGraphCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::optimizer
