#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kv {

struct StackFrame {
  std::string file;
  std::string name;
  int line = 0;
};

/// An error of the product: id, message, arguments, the user's stack and the cause.
class Error : public std::runtime_error {
 public:
  Error(std::string identifier, const std::string& message, std::vector<std::string> arguments = {},
        std::vector<StackFrame> stack = {}, std::shared_ptr<const Error> cause = nullptr);
  ~Error() override;

  const std::string& identifier() const { return identifier_; }
  const std::vector<std::string>& arguments() const { return arguments_; }
  /// Innermost frame first.
  const std::vector<StackFrame>& stack() const { return stack_; }
  const std::shared_ptr<const Error>& cause() const { return cause_; }

 private:
  std::string identifier_;
  std::vector<std::string> arguments_;
  std::vector<StackFrame> stack_;
  std::shared_ptr<const Error> cause_;
};

/// An evaluation was asked to stop and did.
class Interrupted : public std::runtime_error {
 public:
  Interrupted();
  ~Interrupted() override;
};

}  // namespace kv
