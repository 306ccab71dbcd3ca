#pragma once

#include <kv/array.h>

#include <string>
#include <vector>

namespace kv::shell {

/// The results of a query, for people: one line per result, numbers aligned at the point, and a
/// line of statistics. Numbers have as many digits as it takes to read back the same number.
std::string resultsAsTable(const std::vector<std::string>& labels, const Gathered& gathered);

/// The same for programs, on one line. NaN and missing texts are null. JSON has no infinities, so
/// they are the texts "Infinity" and "-Infinity".
std::string resultsAsJson(const std::vector<std::string>& labels, const Gathered& gathered);

/// A plan, as text or as a JSON object.
std::string planAsText(std::string plan, bool json);

}  // namespace kv::shell
