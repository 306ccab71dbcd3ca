#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kv::shell {

/// The arguments of `kvbig open`.
struct OpenRequest {
  std::string file;
  std::vector<std::string> data;  ///< each is `OLD=NEW`
  bool trust = false;             ///< evaluate the arrays
  bool explain = false;           ///< print the plan, evaluate nothing
  bool json = false;
  std::optional<int> threads;          ///< none: the default
  std::optional<std::string> memory;   ///< such as "512MB"; none: the default
  std::optional<std::string> scratch;  ///< a folder; none: the default
};

/// Shows the contents of a file of saved arrays, or its plan, without reading any data. With trust,
/// evaluates the arrays and prints the results as a query does.
///
/// Errors: Error, also for an array that isn't one row; Interrupted.
void runOpen(const OpenRequest& request);

}  // namespace kv::shell
