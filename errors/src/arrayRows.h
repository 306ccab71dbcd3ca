#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of the C++ front end and of the command.
inline constexpr ErrorRow kArrayRows[] = {
    {"KALVEX:array:NoArray", "", "At least one input must be an array.", BaseType::Value},
    {"KALVEX:array:TwoSessions", "", "The arrays belong to different sessions.", BaseType::Value},
    {"KALVEX:array:NoFunction", "", "Expected a function, got an empty one.", BaseType::Type},
    {"KALVEX:array:UnknownFunction", "name, kind", "There is no {1} \"{0}\".", BaseType::Value},
    {"KALVEX:array:NameTaken", "name", "\"{0}\" can't be used as the name of a user function.",
     BaseType::Value},
    {"KALVEX:array:NotANumber", "type", "Expected numbers, got {0}.", BaseType::Type},
    {"KALVEX:array:NotAText", "type", "Expected a text, got {0}.", BaseType::Type},
    {"KALVEX:array:SameName", "name", "Two arrays are named \"{0}\".", BaseType::Value},
    {"KALVEX:array:NotArrays", "path", "The file '{0}' contains no arrays that were saved by name.",
     BaseType::Value},
    {"KALVEX:array:NotOneRow", "label, rows",
     "\"{0}\" has {1} rows; only answers of one row are printed. Open the file from C++ or Python.",
     BaseType::Value},
};

}  // namespace kv::errors
