#pragma once

#include <string>

/// The text below the options in `--help`.
namespace kv::shell {

/// Examples and exit codes.
std::string generalHelp();

/// How formulas are written, with all functions, and examples.
std::string queryHelp();

}  // namespace kv::shell
