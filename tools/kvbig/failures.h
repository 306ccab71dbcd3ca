#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kv::shell {

/// The exit codes of the command; scripts rely on them.
enum ExitCode : int {
  kDone = 0,
  kWrongUsage = 2,  ///< of the command line or in a formula; also an unknown column
  kBadInput = 3,    ///< a file or its content
  kFailed = 4,      ///< in evaluation or in writing the results
  kInterrupted = 130,
};

/// The command was called incorrectly; the message says how to call it.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Prints a warning on stderr; the command continues.
void warn(std::string_view message);

/// Prints the current failure on stderr.
/// Result: its exit code.
/// Requires: called in a catch clause.
ExitCode reportFailure();

}  // namespace kv::shell
