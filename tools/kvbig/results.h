#pragma once

#include <kv/array.h>

#include <string>
#include <vector>

namespace kv::shell {

/// The answers of a query, for people: a line an answer, numbers aligned at the point, and a line
/// on what was done. Numbers have as many digits as it takes to read the same number again.
std::string resultsAsTable(const std::vector<std::string>& labels, const Gathered& gathered);

/// The same for programs, on one line. NaN and a missing text are null; JSON has no infinities, so
/// they are the texts "Infinity" and "-Infinity".
std::string resultsAsJson(const std::vector<std::string>& labels, const Gathered& gathered);

/// A plan, as text or as a JSON object.
std::string planAsText(std::string plan, bool json);

}  // namespace kv::shell
