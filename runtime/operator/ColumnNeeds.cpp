#include "operator/ColumnNeeds.h"

namespace kv::runtime {

void ColumnNeeds::add(const ColumnNeeds& other) {
  all = all || other.all;
  names.insert(other.names.begin(), other.names.end());
}

std::vector<std::string> ColumnNeeds::columnsOf(const Schema& schema) const {
  std::vector<std::string> columns;
  for (const ColumnInfo& column : schema) {
    if (all || names.contains(column.name)) {
      columns.push_back(column.name);
    }
  }
  return columns;
}

}  // namespace kv::runtime
