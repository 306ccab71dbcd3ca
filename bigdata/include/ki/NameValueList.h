#pragma once

#include <map>
#include <string>

#include "kx/array.h"

namespace bigdata::ki {

/// Permitted names with their values; null where none was given.
using NameValueMap = std::map<std::string, const kxArray*>;

/// Reads a list of names and values, as variadic constructors take them: a copy of `defaults` with
/// the values given. All names are checked and no value is looked at; a name that comes twice keeps
/// its last value.
///
/// Lives:  the values belong to the inputs.
/// Errors: "KALVEX:InputParser:ParamMustBeChar" for a name that isn't text,
///         "KALVEX:InputParser:ParamMissingValue" and "KALVEX:InputParser:UnmatchedParameter" with
///         the name; the first in the order of the list.
NameValueMap parseNameValueList(const NameValueMap& defaults, int nrhs, const kxArray** prhs);

}  // namespace bigdata::ki
