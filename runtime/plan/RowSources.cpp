#include "plan/RowSources.h"

#include <algorithm>

#include "source/memory/ArrayDatastore.h"

namespace kv::runtime {

int RowSources::numberOf(const Datastore& source) {
  const ArrayDatastore* arrays = source.asArrays();
  return add(source.rowSpace(), arrays != nullptr ? std::optional(arrays->cut()) : std::nullopt);
}

int RowSources::numberOf(const RowCut& cut) { return add(cut.source, cut.positions()); }

int RowSources::combined(int a, int b) {
  const Rows& rows = rows_[static_cast<std::size_t>(a)];
  const Rows& other = rows_[static_cast<std::size_t>(b)];
  if (a == b || !rows.cut || !other.cut || rows.space != other.space) {
    return a;
  }
  return add(std::string(rows.space), rows.cut->refined(*other.cut));
}

int RowSources::add(const std::string& rowSpace, std::optional<PositionCut> cut) {
  std::vector<int>& numbers = numbers_[rowSpace];
  const auto known = std::ranges::find_if(
      numbers, [&](int number) { return rows_[static_cast<std::size_t>(number)].cut == cut; });
  if (known != numbers.end()) {
    return *known;
  }
  numbers.push_back(static_cast<int>(rows_.size()));
  rows_.push_back({rowSpace, std::move(cut)});
  return numbers.back();
}

}  // namespace kv::runtime
