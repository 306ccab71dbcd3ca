#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/FileTable.h"

namespace kv::runtime {

/// A source of files in one format, which form one table.
class FileDatastore : public Datastore {
 public:
  /// A file of a table.
  struct FileOf {
    const FileDatastore* source = nullptr;
    std::size_t file = 0;  ///< its position in the table
  };

  virtual const FileTable& table() const = 0;

  const Schema& schema() const override { return table().schema; }
  std::string displayName() const override { return table().name; }

  /// The position in the table of the file in which a partition is.
  virtual std::size_t fileNumber(std::int64_t partition) const = 0;
  std::string fileOf(std::int64_t partition) const override {
    return table().files[fileNumber(partition)].path;
  }

  std::vector<std::string> files() const override;

  /// The first rows of all columns that can be read.
  Chunk preview(std::int64_t rows) const override;

  /// Opens other files of the same format.
  /// Errors: as for opening this source.
  virtual std::shared_ptr<const FileDatastore> openOthers(
      const std::vector<std::string>& paths) const = 0;

  /// The table `name` of `files`, which belong to this source or to `others`, in the place of this
  /// one: its columns are those of `others`, with the types that they have in this one.
  ///
  /// Requires: `others` was made by `openOthers`.
  /// Errors:   "KALVEX:datastore:DifferentTypes" if the format fixes the types and they differ.
  virtual std::shared_ptr<const FileDatastore> withFiles(std::string name,
                                                         const FileDatastore& others,
                                                         std::span<const FileOf> files) const = 0;
};

}  // namespace kv::runtime
