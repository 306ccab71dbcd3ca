#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kv::shell {

/// What the command ends with; scripts rely on these.
enum ExitCode : int {
  kDone = 0,
  kWrongUsage = 2,  ///< of the command line or in a formula, unknown columns too
  kBadInput = 3,    ///< a file, or what is in it
  kFailed = 4,      ///< in evaluation, or in writing the results
  kInterrupted = 130,
};

/// The command was called in a wrong way; the message says what would be right.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Prints on stderr what the user should know, though the command goes on.
void warn(std::string_view message);

/// Prints what went wrong on stderr.
/// Result: the exit code for it.
/// Requires: called in a catch clause.
ExitCode reportFailure();

}  // namespace kv::shell
