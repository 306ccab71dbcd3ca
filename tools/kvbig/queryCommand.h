#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kv::shell {

/// The arguments of `kvbig query`, `kvbig explain` or `kvbig save`.
struct QueryRequest {
  std::string path;
  std::vector<std::string> furtherPaths;
  std::vector<std::string> expressions;
  std::optional<std::string> where;      ///< none: all rows
  std::optional<std::string> output;     ///< a file or folder for rows; none: write no rows
  std::optional<std::string> select;     ///< the columns to write, as formulas; none: all
  std::string format;                    ///< of the output; empty: by the ending of its name
  std::vector<std::string> partitionBy;  ///< columns whose values name folders of the output
  bool overwrite = false;                ///< an older output
  std::vector<std::string> types;        ///< each is `NAME=TYPE`
  std::string separator;                 ///< of CSV; empty: the one that it shows
  bool noHeader = false;                 ///< of CSV
  std::vector<std::string> missing;      ///< each is markers of missing values in CSV: `NULL,N/A`
  std::optional<std::uint64_t> seed;     ///< of random numbers; none: a different one in each run
  std::optional<int> threads;            ///< none: the default
  std::optional<std::string> memory;     ///< such as "512MB"; none: the default
  std::optional<std::string> scratch;    ///< a folder; none: the default
  bool json = false;
  bool explain = false;               ///< print the plan, evaluate nothing
  bool dot = false;                   ///< print the lazy graph, evaluate nothing
  std::optional<std::string> saveTo;  ///< save the recorded arrays here, evaluate nothing
};

/// Evaluates all expressions together, writes rows, and prints the results; or only prints the plan
/// or the graph, or saves the recorded arrays.
///
/// Formulas are checked before a file is opened, and columns before the data is read.
/// Errors: FormulaError, UsageError, Error, Interrupted.
void runQuery(const QueryRequest& request);

}  // namespace kv::shell
