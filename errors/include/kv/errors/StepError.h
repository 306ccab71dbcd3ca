#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv/errors/export.h"

namespace kv::errors {

/// An error with an id, raised where no session is at hand: in files, functions, operators, units.
///
/// At the edge of a bound call it becomes an error of the host with the same id, arguments and
/// message. Copies share their content, so that copying never fails.
class KV_ERRORS_API StepError : public std::exception {
 public:
  /// `arguments` are in the order of the row of `id`; the message is made of both.
  explicit StepError(std::string_view id, std::vector<std::string> arguments = {});
  ~StepError() override;
  StepError(const StepError&) noexcept;
  StepError& operator=(const StepError&) noexcept;

  const std::string& id() const noexcept { return content_->id; }
  const std::vector<std::string>& arguments() const noexcept { return content_->arguments; }
  const char* what() const noexcept override { return content_->message.c_str(); }

 private:
  struct Content {
    std::string id;
    std::vector<std::string> arguments;
    std::string message;
  };

  std::shared_ptr<const Content> content_;
};

/// Throws the StepError of `id`.
///
/// Requires: the arguments are those of the row of `id`, if it has one.
[[noreturn]] void raiseStep(std::string_view id, std::vector<std::string> arguments = {});

}  // namespace kv::errors
