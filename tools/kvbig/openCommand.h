#pragma once

#include <string>
#include <vector>

namespace kv::shell {

/// What `kvbig open` was asked.
struct OpenRequest {
  std::string file;
  std::vector<std::string> data;  ///< each `OLD=NEW`
  bool trust = false;             ///< evaluate the arrays
  bool explain = false;           ///< the plan, and no values
  bool json = false;
};

/// Shows what is in a file of saved arrays, or its plan, without reading any data; or evaluates the
/// arrays and prints the answers as a query does.
///
/// Errors: Error, also for an array that isn't one row; Interrupted.
void runOpen(const OpenRequest& request);

}  // namespace kv::shell
