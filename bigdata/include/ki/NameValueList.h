#pragma once

#include <map>
#include <string>

#include "kx/array.h"

namespace bigdata::ki {

/// Permitted names with their values; null where none was given.
using NameValueMap = std::map<std::string, const kxArray*>;

/// Reads a list of name-value pairs, as variadic constructors take it: a copy of `defaults` with
/// the given values. All names are checked, the values aren't. If a name occurs twice, its last
/// value counts.
///
/// Errors: "KALVEX:InputParser:ParamMustBeChar" for a name that isn't text,
///         "KALVEX:InputParser:ParamMissingValue" and "KALVEX:InputParser:UnmatchedParameter" with
///         the name. The first fault in the list is reported.
/// Lives:  the values belong to the inputs.
NameValueMap parseNameValueList(const NameValueMap& defaults, int nrhs, const kxArray** prhs);

}  // namespace bigdata::ki
