#include "kv/error.h"

#include <utility>

namespace kv {

Error::Error(std::string identifier, const std::string& message, std::vector<std::string> arguments,
             std::vector<StackFrame> stack, std::shared_ptr<const Error> cause,
             const ErrorPlace& place)
    : std::runtime_error(message),
      details_(
          std::make_shared<const Details>(Details{std::move(identifier), std::move(arguments),
                                                  std::move(stack), std::move(cause), place})) {}

Error::~Error() = default;

Interrupted::Interrupted() : std::runtime_error("The evaluation was interrupted.") {}

Interrupted::~Interrupted() = default;

}  // namespace kv
