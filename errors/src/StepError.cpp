#include "kv/errors/StepError.h"

#include <cassert>
#include <utility>

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

StepError::StepError(std::string_view id, std::vector<std::string> arguments) {
  std::string message = formatMessage(id, arguments);
  content_ = std::make_shared<const Content>(
      Content{std::string(id), std::move(arguments), std::move(message)});
}

StepError::~StepError() = default;
StepError::StepError(const StepError&) noexcept = default;
StepError& StepError::operator=(const StepError&) noexcept = default;

void raiseStep(std::string_view id, std::vector<std::string> arguments) {
  assert(fitsRow(id, arguments.size()));
  throw StepError(id, std::move(arguments));
}

}  // namespace kv::errors
