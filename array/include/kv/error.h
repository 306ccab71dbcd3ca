#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

struct StackFrame {
  std::string file;
  std::string name;
  int line = 0;
};

/// Where in the data an evaluation failed; empty where that isn't known, or the error is of another
/// kind. Numbers count from 1.
struct ErrorPlace {
  std::optional<std::int64_t> partition{};
  std::optional<std::int64_t> firstRow{};  ///< in the partition, of those that failed together
  std::optional<std::int64_t> lastRow{};   ///< included
  std::string file{};                      ///< in which the partition begins; empty for none
};

/// An error of the product: id, message, arguments, the user's stack, the place in the data and the
/// cause. Copies share these, so copying an error never fails.
///
/// Any call may end in "KALVEX:OutOfMemory".
class Error : public std::runtime_error {
 public:
  Error(std::string identifier, const std::string& message, std::vector<std::string> arguments = {},
        std::vector<StackFrame> stack = {}, std::shared_ptr<const Error> cause = nullptr,
        const ErrorPlace& place = {});
  ~Error() override;

  const std::string& identifier() const { return details_->identifier; }
  const std::vector<std::string>& arguments() const { return details_->arguments; }
  /// Innermost frame first.
  const std::vector<StackFrame>& stack() const { return details_->stack; }
  const std::shared_ptr<const Error>& cause() const { return details_->cause; }
  /// Of an evaluation that failed in a partition: which one and, where a step failed, on which
  /// rows. An error in a file has its file and row as arguments instead of the rows.
  const ErrorPlace& place() const { return details_->place; }

 private:
  struct Details {
    std::string identifier;
    std::vector<std::string> arguments;
    std::vector<StackFrame> stack;
    std::shared_ptr<const Error> cause;
    ErrorPlace place;
  };

  std::shared_ptr<const Details> details_;
};

/// The kind of error that an id denotes, for front ends that derive their errors from those of
/// their language.
enum class ErrorBase : std::uint8_t { Runtime, Value, Type, Key, Index, Memory, System };

/// Result: Runtime for an id that isn't the product's.
ErrorBase errorBase(std::string_view identifier) noexcept;

/// Throws the Error of an id of the product, with the text of the id filled in.
///
/// Requires: `arguments` are those of the id, in their order.
[[noreturn]] void raiseError(std::string_view identifier, std::vector<std::string> arguments = {},
                             std::vector<StackFrame> stack = {});

/// An evaluation was asked to stop and has stopped.
class Interrupted : public std::runtime_error {
 public:
  Interrupted();
  ~Interrupted() override;
};

}  // namespace kv
