#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of files and folders that rows are written to.
inline constexpr ErrorRow kSinkRows[] = {
    {"KALVEX:sink:UnknownFormat", "format, formats",
     "Files of the format '{0:short}' can't be written. The formats, with the endings of their "
     "files, are: {1}.",
     BaseType::Value},
    {"KALVEX:sink:OtherFormat", "path, its format, format",
     "'{0}' has the ending of the format {1}, but {2} is to be written.", BaseType::Value},
    {"KALVEX:sink:Mode", "mode", "mode must be \"error\" or \"overwrite\", got \"{0:short}\".",
     BaseType::Value},
    {"KALVEX:sink:TargetExists", "path",
     "'{0}' exists already. Choose another path, or overwrite it (--overwrite, "
     "mode=\"overwrite\").",
     BaseType::System, true},
    {"KALVEX:sink:NotReplaceable", "path, reason", "'{0}' can't be overwritten: {1}.",
     BaseType::System, true},
    {"KALVEX:sink:OverSource", "path, source",
     "'{0}' can't be overwritten, because '{1}' is read to compute what would be written. Choose "
     "another path.",
     BaseType::Value, true},
    {"KALVEX:sink:CannotWrite", "path, reason, bytes",
     "'{0}' can't be written: {1} (after {2} bytes of a file).", BaseType::System, true},
    {"KALVEX:sink:NoSpace", "path, bytes",
     "'{0}' can't be written: there is no space left on the disk (after {1} bytes of a file).",
     BaseType::System, true},
    {"KALVEX:sink:NeedsFolder", "path",
     "Rows are written to folders by their keys, but '{0}' has the ending of a file.",
     BaseType::Value},
    {"KALVEX:sink:OnlyKeys", "columns",
     "All columns, {0}, are keys of folders, and none is left to be written.", BaseType::Value},
    {"KALVEX:sink:TooManyFolders", "folders, partition",
     "The rows of partition {1} would be in more than {0} folders. Choose keys with fewer values.",
     BaseType::Value},
    {"KALVEX:sink:UnsupportedType", "format, column, type",
     "A {0} file can't hold {1}, which has the type {2}.", BaseType::Type},
    {"KALVEX:sink:MixedTypes", "column, type, other column, other type",
     "A .npy file holds one type, but column '{0:short}' has the type {1}, and column '{2:short}' "
     "the type {3}.",
     BaseType::Type},
    {"KALVEX:sink:MissingValue", "what, row",
     "{0} can't hold a missing value, as in row {1}. Give missing values a value, as in "
     "where(ismissing(x), 0, x), or choose another format.",
     BaseType::Value},
};

}  // namespace kv::errors
