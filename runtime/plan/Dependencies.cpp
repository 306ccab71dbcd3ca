#include "plan/Dependencies.h"

#include <algorithm>
#include <cstdint>

namespace kv::runtime {

namespace {

/// Depth first on an explicit stack: a node is open while those that it needs are visited.
class Search {
 public:
  explicit Search(const Dependencies& dependencies)
      : dependencies_(dependencies), states_(dependencies.size(), State::New) {}

  /// Adds what `root` needs to the order, and `root`.
  void run(std::size_t root) {
    if (states_[root] == State::New) {
      open(root);
    }
    while (!stack_.empty() && !order_.onCycle) {
      auto& [node, nextNeed] = stack_.back();
      const auto needs = dependencies_.needsOf(node);
      if (nextNeed < needs.size()) {
        visit(needs[nextNeed++]);
      } else {
        states_[node] = State::Finished;
        order_.nodes.push_back(node);
        stack_.pop_back();
      }
    }
  }

  const DependencyOrder& order() const { return order_; }
  DependencyOrder take() { return std::move(order_); }

 private:
  enum class State : std::uint8_t { New, Open, Finished };
  struct Visit {
    std::size_t node;
    std::size_t nextNeed;
  };

  void open(std::size_t node) {
    states_[node] = State::Open;
    stack_.push_back({node, 0});
  }

  void visit(std::size_t node) {
    if (states_[node] == State::Open) {
      order_.onCycle = node;
    } else if (states_[node] == State::New) {
      open(node);
    }
  }

  const Dependencies& dependencies_;
  std::vector<State> states_;
  std::vector<Visit> stack_;
  DependencyOrder order_;
};

}  // namespace

DependencyOrder orderFrom(const Dependencies& dependencies, std::size_t root) {
  Search search(dependencies);
  search.run(root);
  return search.take();
}

Nesting measureNesting(const Dependencies& dependencies) {
  Search search(dependencies);
  for (std::size_t node = 0; node < dependencies.size() && !search.order().onCycle; ++node) {
    search.run(node);
  }
  Nesting nesting{.onCycle = search.order().onCycle};
  std::vector<std::size_t> depths(dependencies.size(), 0);
  for (const std::size_t node : search.order().nodes) {
    for (const std::size_t need : dependencies.needsOf(node)) {
      depths[node] = std::max(depths[node], depths[need]);
    }
    ++depths[node];
    nesting.depth = std::max(nesting.depth, depths[node]);
  }
  return nesting;
}

}  // namespace kv::runtime
