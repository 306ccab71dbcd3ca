#pragma once

#include <bit>
#include <cassert>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace kv::runtime {

/// Merges leaves in the shape of a binary tree over all numbers 0, 1, 2, ..., in which node i of a
/// level covers nodes 2i and 2i + 1 of the level below. A missing leaf changes nothing.
///
/// The shape depends only on the numbers of the leaves, not on how they arrive. At most 64 nodes
/// are stored: those whose part of the tree isn't complete.
///
/// `T` has `void merge(const T& later)`.
template <class T>
class FixedTree {
 public:
  /// Requires: `number` is above those of earlier calls, and not negative.
  void push(std::int64_t number, T leaf) {
    assert(number >= 0 && (nodes_.empty() || nodes_.back().number < number));
    while (nodes_.size() >= 2 && lastPairLevel() < meetLevel(nodes_.back().number, number)) {
      mergeLastPair();
    }
    nodes_.push_back({number, std::move(leaf)});
  }

  /// The values that haven't been merged with others yet, each under the number of one of its
  /// leaves: pushed in this order, they make the same tree again. The tree has no leaf then.
  std::vector<std::pair<std::int64_t, T>> takeNodes() {
    std::vector<std::pair<std::int64_t, T>> taken;
    for (Node& node : nodes_) {
      taken.emplace_back(node.number, std::move(node.value));
    }
    nodes_.clear();
    return taken;
  }

  /// Calls `visit(value)` for each of these values.
  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const Node& node : nodes_) {
      visit(node.value);
    }
  }

  /// The value of the root; empty if there was no leaf.
  std::optional<T> finish() {
    while (nodes_.size() >= 2) {
      mergeLastPair();
    }
    if (nodes_.empty()) {
      return std::nullopt;
    }
    return std::move(nodes_.front().value);
  }

 private:
  struct Node {
    std::int64_t number;  ///< of one of its leaves
    T value;
  };

  /// Height of the smallest subtree that contains both leaves.
  static int meetLevel(std::int64_t a, std::int64_t b) {
    return static_cast<int>(std::bit_width(static_cast<std::uint64_t>(a ^ b)));
  }

  int lastPairLevel() const {
    return meetLevel(nodes_[nodes_.size() - 2].number, nodes_.back().number);
  }

  void mergeLastPair() {
    const T later = std::move(nodes_.back().value);
    nodes_.pop_back();
    nodes_.back().value.merge(later);
  }

  std::vector<Node> nodes_;
};

}  // namespace kv::runtime
