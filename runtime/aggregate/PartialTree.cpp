#include "aggregate/PartialTree.h"

#include <fmt/format.h>

#include <string>
#include <utility>

#include "aggregate/aggregateTable.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

void PartialTree::Node::merge(const Node& later) { mergePartial(partial, later.partial); }

PartialTree::PartialTree(AggregateKind kind) { none_.kind = kind; }

void PartialTree::add(AggregatePartial partial) {
  const AggregateKind kind = none_.kind;
  if (partial.kind != kind || partial.rule != rule_.value_or(partial.rule)) {
    errors::raiseStep("KALVEX:function:BadPartial",
                      {fmt::format("{} expected states of its own kind and rule, got one of {}",
                                   nameOf(kind), nameOf(partial.kind))});
  }
  rule_ = partial.rule;
  const std::int64_t number = numAdded_++;
  if (!partial.type) {
    return;
  }
  if (type_ && type_ != partial.type) {
    throwMixedTypes(kind, *type_, *partial.type);
  }
  type_ = partial.type;
  tree_.push(number, {std::move(partial)});
}

AggregatePartial PartialTree::finish() {
  const auto total = tree_.finish();
  return total ? total->partial : none_;
}

Column combinePartials(AggregateKind kind, std::span<const AggregatePartial> partials) {
  PartialTree tree(kind);
  for (const AggregatePartial& partial : partials) {
    tree.add(partial);
  }
  return answerOf(tree.finish());
}

}  // namespace kv::runtime
