#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kv::runtime {

/// A function that can't be applied to what it was given.
///
/// `what()` is the full sentence; `id()` and `arguments()` are for a layer that has a catalogue.
class FunctionError : public std::runtime_error {
 public:
  FunctionError(std::string id, std::vector<std::string> arguments, const std::string& message)
      : std::runtime_error(message), id_(std::move(id)), arguments_(std::move(arguments)) {}

  const std::string& id() const noexcept { return id_; }
  const std::vector<std::string>& arguments() const noexcept { return arguments_; }

 private:
  std::string id_;
  std::vector<std::string> arguments_;
};

}  // namespace kv::runtime
