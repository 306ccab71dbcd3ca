#include "kv/error.h"

#include <cassert>
#include <utility>

#include "kv/errors/ErrorRow.h"

namespace kv {

Error::Error(std::string identifier, const std::string& message, std::vector<std::string> arguments,
             std::vector<StackFrame> stack, std::shared_ptr<const Error> cause,
             const ErrorPlace& place)
    : std::runtime_error(message),
      details_(
          std::make_shared<const Details>(Details{std::move(identifier), std::move(arguments),
                                                  std::move(stack), std::move(cause), place})) {}

Error::~Error() = default;

ErrorBase errorBase(std::string_view identifier) noexcept {
  const errors::ErrorRow* row = errors::findErrorRow(identifier);
  if (row == nullptr) {
    return ErrorBase::Runtime;
  }
  switch (row->base) {
    case errors::BaseType::Value:
      return ErrorBase::Value;
    case errors::BaseType::Type:
      return ErrorBase::Type;
    case errors::BaseType::Key:
      return ErrorBase::Key;
    case errors::BaseType::Index:
      return ErrorBase::Index;
    case errors::BaseType::Memory:
      return ErrorBase::Memory;
    case errors::BaseType::System:
      return ErrorBase::System;
    case errors::BaseType::Runtime:
      break;
  }
  return ErrorBase::Runtime;
}

void raiseError(std::string_view identifier, std::vector<std::string> arguments,
                std::vector<StackFrame> stack) {
  assert(errors::fitsRow(identifier, arguments.size()));
  const std::string message = errors::formatMessage(identifier, arguments);
  throw Error(std::string(identifier), message, std::move(arguments), std::move(stack));
}

Interrupted::Interrupted() : std::runtime_error("The evaluation was interrupted.") {}

Interrupted::~Interrupted() = default;

}  // namespace kv
