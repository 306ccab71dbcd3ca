#pragma once

#include <string_view>
#include <vector>

#include "plan/PassGraph.h"

namespace kv::runtime {

/// A rewrite of what a pass runs. It changes no bit of an answer.
struct Rule {
  std::string_view name;  ///< by which it is switched off
  void (*apply)(PassGraph& graph);
};

/// The rules that are switched on, in the order in which they are applied.
using Rules = std::vector<const Rule*>;

}  // namespace kv::runtime
