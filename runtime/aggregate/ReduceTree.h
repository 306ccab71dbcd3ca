#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace kv::runtime {

/// Reduces leaves, in the order in which they come, in a tree each of whose nodes has up to 64
/// children. Its shape follows from the number of leaves alone, so that an answer doesn't depend
/// on who reduces what. At most 63 nodes of a level wait for the others.
template <class T>
class ReduceTree {
 public:
  static constexpr std::size_t kChildren = 64;

  /// `reduce` makes one node of up to kChildren. `areReduced`: leaves have been through `reduce`,
  /// so that a single one isn't reduced again; otherwise every result has been through it.
  ReduceTree(std::function<T(std::vector<T>)> reduce, bool areReduced)
      : reduce_(std::move(reduce)), areReduced_(areReduced) {}

  void push(T leaf) {
    for (std::size_t level = 0;; ++level) {
      if (level == levels_.size()) {
        levels_.emplace_back();
      }
      levels_[level].push_back(std::move(leaf));
      if (levels_[level].size() < kChildren) {
        return;
      }
      leaf = reduce_(std::exchange(levels_[level], {}));
    }
  }

  /// The root; nothing if there was no leaf. The tree is used up.
  std::optional<T> finish() {
    std::optional<T> carried;
    for (std::size_t level = 0; level < levels_.size(); ++level) {
      std::vector<T> nodes = std::move(levels_[level]);
      if (carried) {
        nodes.push_back(*std::exchange(carried, std::nullopt));
      }
      const bool isReduced = level > 0 || areReduced_;
      if (nodes.size() == 1 && isReduced) {
        carried = std::move(nodes.front());
      } else if (!nodes.empty()) {
        carried = reduce_(std::move(nodes));
      }
    }
    return carried;
  }

 private:
  std::function<T(std::vector<T>)> reduce_;
  bool areReduced_;
  std::vector<std::vector<T>> levels_;
};

}  // namespace kv::runtime
