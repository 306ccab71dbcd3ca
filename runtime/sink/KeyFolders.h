#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sink/WriteTarget.h"

namespace kv::runtime {

/// The places of rows, in order.
using RowPlacesList = std::vector<std::uint64_t>;

/// Cuts rows by the values of some columns: each combination has a folder, `key=value/other=value`,
/// as Hive names them.
class KeyFolders {
 public:
  /// Requires: the target's keys are among its names.
  explicit KeyFolders(const WriteTarget& target);

  /// True if there are keys.
  bool hasKeys() const { return !keys_.empty(); }

  /// The rows of each folder. Names and values are percent-encoded but for letters, digits and a
  /// few other characters; a missing value is `__HIVE_DEFAULT_PARTITION__`.
  std::map<std::string, RowPlacesList> placesByFolder(const Chunk& rows) const;

  /// The other columns, and their names.
  Chunk withoutKeys(const Chunk& rows) const;
  const std::vector<std::string>& names() const { return names_; }

 private:
  std::vector<std::size_t> keys_;  ///< their columns, in the order in which folders are nested
  std::vector<std::string> keyNames_;
  std::vector<std::size_t> others_;
  std::vector<std::string> names_;
};

/// The rows of a chunk at `places`.
Chunk rowsAt(const Chunk& rows, const RowPlacesList& places);

}  // namespace kv::runtime
