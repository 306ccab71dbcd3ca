#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kv::shell {

/// The largest seed of random numbers: all up to it are whole numbers that a double holds.
inline constexpr std::uint64_t kMaxSeed = (std::uint64_t{1} << 53) - 1;

/// What `kvbig query`, `kvbig explain` or `kvbig save` was asked.
struct QueryRequest {
  std::string path;
  std::vector<std::string> furtherPaths;
  std::vector<std::string> expressions;
  std::optional<std::string> where;   ///< none: all rows
  std::vector<std::string> types;     ///< each `NAME=TYPE`
  std::optional<std::uint64_t> seed;  ///< of random numbers; none: another one each run
  bool json = false;
  bool explain = false;               ///< the plan, and no values
  bool dot = false;                   ///< the lazy graph, and no values
  std::optional<std::string> saveTo;  ///< a file for the recorded arrays, and no values
};

/// Evaluates all expressions in one go and prints the answers; or prints only the plan or the
/// graph, or saves what was recorded.
///
/// Formulas are looked through before a file is opened, and columns before the data is read.
/// Errors: FormulaError, UsageError, Error, Interrupted.
void runQuery(const QueryRequest& request);

}  // namespace kv::shell
