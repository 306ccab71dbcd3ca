#pragma once

#include <set>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// Names of a table's columns that later steps need; every column once `all` is set.
struct ColumnNeeds {
  bool all = false;
  std::set<std::string> names{};

  void add(const ColumnNeeds& other);

  /// The needed columns of a source, in its order.
  std::vector<std::string> columnsOf(const Schema& schema) const;
};

}  // namespace kv::runtime
