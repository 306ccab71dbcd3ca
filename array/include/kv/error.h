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

/// An error of the product: id, message, arguments, the user's stack and the cause. Copies share
/// them, so that copying an error never fails.
///
/// Any call may end in "KALVEX:OutOfMemory".
class Error : public std::runtime_error {
 public:
  Error(std::string identifier, const std::string& message, std::vector<std::string> arguments = {},
        std::vector<StackFrame> stack = {}, std::shared_ptr<const Error> cause = nullptr);
  ~Error() override;

  const std::string& identifier() const { return details_->identifier; }
  const std::vector<std::string>& arguments() const { return details_->arguments; }
  /// Innermost frame first.
  const std::vector<StackFrame>& stack() const { return details_->stack; }
  const std::shared_ptr<const Error>& cause() const { return details_->cause; }

 private:
  struct Details {
    std::string identifier;
    std::vector<std::string> arguments;
    std::vector<StackFrame> stack;
    std::shared_ptr<const Error> cause;
  };

  std::shared_ptr<const Details> details_;
};

/// An evaluation was asked to stop and did.
class Interrupted : public std::runtime_error {
 public:
  Interrupted();
  ~Interrupted() override;
};

}  // namespace kv
