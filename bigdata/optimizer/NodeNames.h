#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "lazyeval/ClosureDependencyWalker.h"

namespace bigdata::optimizer {

using GraphNodes = std::vector<lazyeval::ClosureGraphNode>;

/// What the nodes of a walked graph are called: by their ids as text, each by a name of its own.
///
/// Ids aren't identity: an array and its opened copy may stand in one graph. Of nodes with one id,
/// those that the walk finished later get a number behind it, from 2 on.
///
/// Errors: "KALVEX:class:InvalidHandle" for a deleted object.
class NodeNames {
 public:
  explicit NodeNames(const GraphNodes& nodes);

  /// Of a closure, promise or future; one that isn't a node is called by its id.
  ///
  /// Lives: as long as this.
  template <class T>
  const std::u16string& of(const T& object) {
    const auto found = names_.find(&object);
    return found != names_.end() ? found->second
                                 : names_.emplace(&object, object.getIdStr()).first->second;
  }

 private:
  /// By address of the native object.
  std::unordered_map<const void*, std::u16string> names_;
};

}  // namespace bigdata::optimizer
