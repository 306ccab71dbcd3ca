#pragma once

#include <cstdint>
#include <optional>

#include "aggregate/FixedTree.h"
#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

/// Merges the contributions of partitions 0, 1, 2 ... as they arrive, in the tree that their
/// numbers define.
class PartialTree {
 public:
  explicit PartialTree(AggregateKind kind);

  /// Errors: those of combinePartials() but for "KALVEX:function:Overflow".
  void add(AggregatePartial partial);

  /// The contribution of all partitions. The tree is used up.
  AggregatePartial finish();

 private:
  /// A leaf, or what leaves were merged to.
  struct Node {
    AggregatePartial partial;

    void merge(const Node& later);
  };

  AggregatePartial none_;  ///< the contribution of no partition
  std::optional<MissingRule> rule_;
  std::optional<ElementType> type_;
  std::int64_t numAdded_ = 0;
  FixedTree<Node> tree_;
};

}  // namespace kv::runtime
