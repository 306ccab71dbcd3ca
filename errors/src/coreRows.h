#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids that the core raises as native exceptions, and those of its conversions of values.
inline constexpr ErrorRow kCoreRows[] = {
    {"KALVEX:validateattributes:invalidType", "role, expected, actual",
     "{0} must be {1}; it was '{2}'.", BaseType::Type},
    {"KALVEX:string:MustBeStringScalarOrCharacterVector", "",
     "Value must be a string scalar or a character vector.", BaseType::Type},
    {"KALVEX:string:MissingNotSupported", "", "A missing string isn't supported here.",
     BaseType::Value},
    {"KALVEX:InputParser:ParamMustBeChar", "",
     "A parameter name must be a string scalar or a character vector.", BaseType::Type},
    {"KALVEX:InputParser:ParamMissingValue", "name", "No value was given for the parameter '{0}'.",
     BaseType::Type},
    {"KALVEX:InputParser:UnmatchedParameter", "name, empty", "'{0}' isn't a recognized parameter.",
     BaseType::Type},
    {"KALVEX:bigdata:array:InternalError", "fault", "Internal error: {0}"},
    {"KALVEX:bigdata:array:IncompatibleTallIndexing", "",
     "Arrays that are combined must come from the same rows of the same source.", BaseType::Value},
    {"KALVEX:bigdata:array:IncompatibleTallExecutor", "",
     "Arrays that are combined must have the same executor.", BaseType::Value},
    {"KALVEX:bigdata:array:InvalidTallVersion", "release",
     "The array was saved by release {0} and can't be loaded by this one."},
};

}  // namespace kv::errors
