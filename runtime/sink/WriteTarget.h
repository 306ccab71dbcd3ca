#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// The length of a token.
inline constexpr std::size_t kTokenDigits = 32;

/// Where rows are written, and how. A plain value, part of a stage.
struct WriteTarget {
  std::string path{};     ///< absolute, without a slash at the end
  std::string format{};   ///< a name in the table of formats
  bool isFolder = false;  ///< a folder with a file for each partition; otherwise one file
  bool overwrites = false;
  std::vector<std::string> names{};        ///< of the columns of a table; none for an array
  std::vector<std::string> partitionBy{};  ///< of the names, those whose values name folders
  std::string token{};  ///< identifies this run of the sink; kTokenDigits hexadecimal digits

  bool operator==(const WriteTarget&) const = default;

  void write(ByteWriter& bytes) const;

  /// Errors: "KALVEX:executor:BadBytes".
  static WriteTarget read(ByteReader& bytes);
};

/// Sets the columns of a target.
///
/// Errors: "KALVEX:array:UnknownColumn" for a key that isn't a column; "KALVEX:array:SameName" for
///         one that is given twice; "KALVEX:sink:NeedsFolder" for keys of a single file;
///         "KALVEX:sink:OnlyKeys" if all columns are keys.
void setColumns(WriteTarget& target, std::vector<std::string> names,
                std::vector<std::string> partitionBy);

/// The target that a path means. A path with an ending of the format is a file; any other, and one
/// that ends with a slash, is a folder. `format`: a name; if it is empty, the ending decides, and
/// Parquet is the format of a folder.
///
/// Result: made absolute; without names.
/// Errors: "KALVEX:sink:UnknownFormat" for a name, or the ending of a path, that no format has;
///         "KALVEX:sink:OtherFormat" for the ending of another format than the given one.
WriteTarget targetOf(const std::string& path, std::string_view format, bool overwrites);

/// Refuses a target that can't be written, before any row is read.
///
/// `sourceFiles`: the files that are read to compute the rows, or anything else in the same graph.
/// Errors: "KALVEX:sink:OverSource" with the file, if it is one of them or a folder above it;
///         "KALVEX:sink:TargetExists"; "KALVEX:sink:NotReplaceable" with the reason, for anything
///         but a file, or a folder that a sink wrote; "KALVEX:sink:CannotWrite".
void checkTarget(const WriteTarget& target, std::span<const std::string> sourceFiles);

/// The name of the file in a folder that lists all others.
inline constexpr std::string_view kManifestName = "_kv_manifest.json";

}  // namespace kv::runtime
