// The builders of a composite processor form a graph that the host asks for as plain tables, so
// that it can assemble the processor without following native pointers. The traversal uses an
// explicit stack and identity, not ids: graphs may be arbitrarily deep, and a graph that contains a
// builder and its loaded copy has two builders with the same id.

#include "executor/CompositeDataProcessorBuilder.h"

#include <unordered_set>
#include <utility>

#include "kcos/class.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "kx/string.h"
#include "util/CosClientTraits.h"

namespace bigdata::executor {

namespace {

using Builder = CompositeDataProcessorBuilder;
using matrix::ArrayPtr;

/// An input of a builder.
struct Edge {
  const Builder* source;
  const Builder* target;
};

std::vector<Edge> edgesInto(const Builder::Builders& builders) {
  std::vector<Edge> edges;
  for (const Builder::BuilderPtr& builder : builders) {
    for (const auto& input : builder->getInputBuilders()) {
      edges.push_back({&*input, &*builder});
    }
  }
  return edges;
}

ArrayPtr edgeTable(const std::vector<Edge>& edges) {
  ArrayPtr table = Torvane::String::createStringArray(edges.size(), 2);
  for (std::size_t row = 0; row < edges.size(); ++row) {
    Torvane::String::setString(table.get(), row, edges[row].source->getId());
    Torvane::String::setString(table.get(), edges.size() + row, edges[row].target->getId());
  }
  return table;
}

/// The edges of one target are adjacent, so the count restarts where the target's id changes.
/// Two adjacent builders with the same id, such as one and its loaded copy, share a count.
ArrayPtr ordinalColumn(const std::vector<Edge>& edges) {
  ArrayPtr column = matrix::from_kalvex(kxCreateDoubleMatrix(edges.size(), 1, 0));
  auto* ordinals = static_cast<double*>(kxGetMutableData(column.get()));
  util::UniqueId lastTarget;
  double ordinal = 1;
  for (std::size_t row = 0; row < edges.size(); ++row) {
    const util::UniqueId& target = edges[row].target->uniqueId();
    if (target != lastTarget) {
      ordinal = 1;
      lastTarget = target;
    }
    ordinals[row] = ordinal++;
  }
  return column;
}

}  // namespace

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info, NewId)
    : KalvexManagedObject(info), id_(util::nextUniqueId<Builder>()) {}

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                       const Builders& inputBuilders, ArrayPtr dataProcessorFactory)
    : CompositeDataProcessorBuilder(info, inputBuilders, std::move(dataProcessorFactory),
                                    StrategyPtr()) {}

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                       const Builders& inputBuilders, ArrayPtr dataProcessorFactory,
                                       const StrategyPtr& outputPartitionStrategy)
    : CompositeDataProcessorBuilder(info, NewId{}) {
  setDataProcessorFactory(std::move(dataProcessorFactory));
  setOutputPartitionStrategy(outputPartitionStrategy);
  setInputBuilders(inputBuilders);
}

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info, ArrayPtr input)
    : CompositeDataProcessorBuilder(info, NewId{}) {
  if (kxIsNumeric(input.get())) {
    setInputOrdinal(ki::toSize(input.get()));
  } else {
    setInputId(ki::fromArray<std::u16string>(input.get()));
  }
}

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                       std::u16string inputId)
    : CompositeDataProcessorBuilder(info, NewId{}) {
  setInputId(std::move(inputId));
}

Builder::CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                       std::size_t inputOrdinal)
    : CompositeDataProcessorBuilder(info, NewId{}) {
  setInputOrdinal(inputOrdinal);
}

void Builder::setInputBuilders(const Builders& builders) {
  std::vector<ki::PropertyPtr<Builder>> linked;
  linked.reserve(builders.size());
  for (const BuilderPtr& builder : builders) {
    linked.emplace_back(&*builder, builder.interface(), selfInterface());
  }
  inputBuilders_ = std::move(linked);
}

void Builder::setDataProcessorFactory(ArrayPtr value) {
  dataProcessorFactory_ = ki::adoptPropertyArray(selfInterface(), std::move(value));
}

void Builder::setOutputPartitionStrategy(const StrategyPtr& value) {
  outputPartitionStrategy_ = {selfInterface(), value};
}

void Builder::setGraph(ArrayPtr value) {
  graph_ = ki::adoptPropertyArray(selfInterface(), std::move(value));
}

ArrayPtr Builder::getAllInputIds() const {
  const ArrayPtr self = ki::toArray(getSelf<Builder>());
  return ki::callHostMethod(selfInterface()->getClassObject()->getClassId(), "getAllInputIds",
                            util::keptCosClient<Builder>(), {self.get()});
}

ArrayPtr Builder::feval(const kxArray* first, const kxArray* second) const {
  const ArrayPtr self = ki::toArray(getSelf<Builder>());
  const ArrayPtr firstCopy = matrix::sharedCopy(first);
  const ArrayPtr secondCopy = matrix::sharedCopy(second);
  return ki::callHostMethod(selfInterface()->getClassObject()->getClassId(), "feval",
                            util::keptCosClient<Builder>(),
                            {self.get(), firstCopy.get(), secondCopy.get()});
}

Builder::Builders Builder::findAllBuilders() const {
  Builders found;
  std::unordered_set<const Builder*> visited;
  Builders pending{getSelf<Builder>()};
  while (!pending.empty()) {
    BuilderPtr builder = std::move(pending.back());
    pending.pop_back();
    if (!visited.insert(builder.raw()).second) {
      continue;
    }
    for (const auto& input : builder->getInputBuilders()) {
      pending.push_back(input.lock());
    }
    found.push_back(std::move(builder));
  }
  return found;
}

std::tuple<Builder::Builders, ArrayPtr, ArrayPtr> Builder::findAllDependencies() const {
  Builders builders = findAllBuilders();
  const std::vector<Edge> edges = edgesInto(builders);
  return {std::move(builders), edgeTable(edges), ordinalColumn(edges)};
}

}  // namespace bigdata::executor
