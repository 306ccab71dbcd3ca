#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace kv::runtime {

/// Which of some nodes need which others, by number. Nodes are added in order, each with all that
/// it needs.
class Dependencies {
 public:
  void addNode() { firstNeed_.push_back(needs_.size()); }
  /// Of the node that was added last.
  void addNeed(std::size_t node) { needs_.push_back(node); }

  std::size_t size() const { return firstNeed_.size(); }
  std::span<const std::size_t> needsOf(std::size_t node) const {
    const std::size_t end = node + 1 < firstNeed_.size() ? firstNeed_[node + 1] : needs_.size();
    return std::span(needs_).subspan(firstNeed_[node], end - firstNeed_[node]);
  }

 private:
  std::vector<std::size_t> firstNeed_;
  std::vector<std::size_t> needs_;
};

struct DependencyOrder {
  std::vector<std::size_t> nodes{};      ///< each once, after all that it needs
  std::optional<std::size_t> onCycle{};  ///< a node that needs itself, over others or not
};

/// The order of the nodes that `root` needs, and `root` itself, which is last: depth first, the
/// needs of a node in their order. With a cycle, the nodes before it was found.
///
/// Cost: linear; no recursion.
DependencyOrder orderFrom(const Dependencies& dependencies, std::size_t root);

struct Nesting {
  std::optional<std::size_t> onCycle{};  ///< as in DependencyOrder
  std::size_t depth = 0;                 ///< nodes on the longest path; meaningless with a cycle
};

/// Of all nodes. Cost: linear; no recursion.
Nesting measureNesting(const Dependencies& dependencies);

}  // namespace kv::runtime
