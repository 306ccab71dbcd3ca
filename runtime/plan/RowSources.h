#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "column/RowPlaces.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// Numbers for what a pass can read its rows from: a source, or positions in one cut. Two arrays in
/// memory that are cut differently are combined in the cut that refines both; each alone keeps its
/// own, so that its answers don't depend on what else is computed.
class RowSources {
 public:
  int numberOf(const Datastore& source);
  int numberOf(const RowCut& cut);
  /// Of rows that a task makes, which aren't positions.
  int numberOf(const std::string& rowSpace) { return add(rowSpace, std::nullopt); }

  /// The number for rows of both: of positions their refined cut, otherwise `a`.
  int combined(int a, int b);

 private:
  int add(const std::string& rowSpace, std::optional<PositionCut> cut);

  struct Rows {
    std::string space;
    std::optional<PositionCut> cut;
  };
  std::vector<Rows> rows_;
  std::map<std::string, std::vector<int>> numbers_;  ///< by row space
};

}  // namespace kv::runtime
