#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kv::runtime {

/// An error with an id of the catalogue, raised by code without a session.
///
/// `what()` is the full sentence; `id()` and `arguments()` are for a layer with a catalogue.
class IdentifiedError : public std::runtime_error {
 public:
  IdentifiedError(std::string id, std::vector<std::string> arguments, const std::string& message)
      : std::runtime_error(message), id_(std::move(id)), arguments_(std::move(arguments)) {}

  const std::string& id() const noexcept { return id_; }
  const std::vector<std::string>& arguments() const noexcept { return arguments_; }

 private:
  std::string id_;
  std::vector<std::string> arguments_;
};

}  // namespace kv::runtime
