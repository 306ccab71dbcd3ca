#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/files.h"
#include "source/SourceFile.h"

/// Files that form one table, in any format.
namespace kv::runtime {

/// Everything about the files of a table except their rows.
struct FileTable {
  std::string name;               ///< the user's name for them
  std::vector<SourceFile> files;  ///< at least one
  Schema schema;                  ///< names are distinct
};

/// The files that `paths` denote, as they are now, and the name of their table; no schema.
///
/// `endings`: of the files that are read in a folder, see expandPath().
/// Errors:    "KALVEX:datastore:NoPaths"; as for expandPath() and SourceFile::stat().
FileTable lookAtFiles(const std::vector<std::string>& paths,
                      const std::vector<std::string_view>& endings);

/// The name of a table in `files` files at `paths`.
std::string tableName(const std::vector<std::string>& paths, std::size_t files);

/// The names of the columns, in their order.
std::vector<std::string> columnNames(const Schema& schema);

/// The position in `schema` of the column `name`.
///
/// Errors: "KALVEX:datastore:UnknownColumn" with the existing columns.
std::size_t columnIndex(const Schema& schema, const std::string& name);

/// The type that the user gives a column.
///
/// Errors: "KALVEX:datastore:UnknownType" with the existing types.
ElementType typeNamed(const TypeOverride& wanted);

/// `note`: what the message adds about how the columns were found.
/// Errors: "KALVEX:datastore:DifferentColumns" unless the columns of `path` are those of `first`.
void requireSameColumns(const std::string& path, const std::vector<std::string>& names,
                        const std::string& first, const std::vector<std::string>& expected,
                        const std::string& note = {});

/// Types that the user names may only confirm those of a format that fixes them.
///
/// Errors: "KALVEX:datastore:FixedType", "KALVEX:datastore:UnknownColumn",
///         "KALVEX:datastore:UnknownType".
void requireTypes(const std::string& source, const Schema& schema,
                  const std::vector<TypeOverride>& types);

/// The type of a column for messages: that in the file if it can't be read.
std::string shownType(const ColumnInfo& column);

/// A file as bytes.
void writeFile(ByteWriter& bytes, const SourceFile& file);
SourceFile readFile(ByteReader& bytes);

/// A table as bytes.
void writeTable(ByteWriter& bytes, const FileTable& table);

/// Reads what writeTable() wrote.
/// Errors: "KALVEX:executor:BadBytes", also for no files or two columns of one name.
FileTable readTable(ByteReader& bytes);

}  // namespace kv::runtime
