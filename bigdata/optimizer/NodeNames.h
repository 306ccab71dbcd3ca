#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "lazyeval/ClosureDependencyWalker.h"

namespace bigdata::optimizer {

using GraphNodes = std::vector<lazyeval::ClosureGraphNode>;

/// The names of the nodes of a walked graph: each node's id as text, made unique.
///
/// Ids aren't identity: an array and its reopened copy may be in one graph. Of nodes with the same
/// id, those that the walk finished later get a number appended, from 2 on.
///
/// Errors: "KALVEX:class:InvalidHandle" for a deleted object.
class NodeNames {
 public:
  explicit NodeNames(const GraphNodes& nodes);

  /// The name of a closure, promise or future; an object that isn't a node has its id as name.
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
