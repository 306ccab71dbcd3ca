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

void raiseError(std::string_view identifier, std::vector<std::string> arguments,
                std::vector<StackFrame> stack) {
  assert(errors::fitsRow(identifier, arguments.size()));
  const std::string message = errors::formatMessage(identifier, arguments);
  throw Error(std::string(identifier), message, std::move(arguments), std::move(stack));
}

Interrupted::Interrupted() : std::runtime_error("The evaluation was interrupted.") {}

Interrupted::~Interrupted() = default;

}  // namespace kv
