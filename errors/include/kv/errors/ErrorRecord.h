#pragma once

#include <string>
#include <vector>

namespace kv::errors {

/// A frame of a user's stack.
struct Frame {
  std::string file;
  std::string name;
  int line = 0;

  bool operator==(const Frame&) const = default;
};

/// An error as a plain value.
struct ErrorRecord {
  std::string identifier;
  std::string message;
  std::vector<std::string> arguments;
  std::vector<Frame> stack;         ///< innermost first
  std::vector<ErrorRecord> causes;  ///< at most one; its own causes follow inside
  std::string className;            ///< "KException" or a subclass

  bool operator==(const ErrorRecord&) const = default;
};

}  // namespace kv::errors
