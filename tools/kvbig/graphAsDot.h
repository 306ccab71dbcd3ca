#pragma once

#include <kv/lazyGraph.h>

#include <string>
#include <vector>

namespace kv::shell {

/// The lazy graph in the DOT language of Graphviz: closures as boxes with operation and place,
/// promises and futures as ellipses, futures of results doubled and with their labels.
/// Requires: a label for each result.
std::string graphAsDot(const LazyGraph& graph, const std::vector<std::string>& labels);

}  // namespace kv::shell
