#include "persistence/Dependencies.h"

#include <algorithm>
#include <cstdint>

namespace kv::runtime {

namespace {

/// Depth-first search with its own stack: a node is open while the nodes that it needs are visited.
class Search {
 public:
  explicit Search(const Dependencies& dependencies)
      : dependencies_(dependencies),
        states_(dependencies.size(), State::New),
        depths_(dependencies.size(), 0) {}

  Nesting run() {
    Nesting nesting;
    for (std::size_t node = 0; node < states_.size(); ++node) {
      if (states_[node] == State::New) {
        open(node);
        if ((nesting.onCycle = finishStack())) {
          return nesting;
        }
      }
      nesting.depth = std::max(nesting.depth, depths_[node]);
    }
    return nesting;
  }

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

  void finish(std::size_t node) {
    for (const std::size_t need : dependencies_.needsOf(node)) {
      depths_[node] = std::max(depths_[node], depths_[need]);
    }
    ++depths_[node];
    states_[node] = State::Finished;
  }

  /// A node that is reached while it is open; empty when the stack is.
  std::optional<std::size_t> finishStack() {
    while (!stack_.empty()) {
      auto& [node, nextNeed] = stack_.back();
      const auto needs = dependencies_.needsOf(node);
      if (nextNeed == needs.size()) {
        finish(node);
        stack_.pop_back();
        continue;
      }
      const std::size_t need = needs[nextNeed++];
      if (states_[need] == State::Open) {
        return need;
      }
      if (states_[need] == State::New) {
        open(need);
      }
    }
    return std::nullopt;
  }

  const Dependencies& dependencies_;
  std::vector<State> states_;
  std::vector<std::size_t> depths_;
  std::vector<Visit> stack_;
};

}  // namespace

Nesting measureNesting(const Dependencies& dependencies) { return Search(dependencies).run(); }

}  // namespace kv::runtime
