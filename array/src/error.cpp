#include "kv/error.h"

#include <utility>

namespace kv {

Error::Error(std::string identifier, const std::string& message, std::vector<std::string> arguments,
             std::vector<StackFrame> stack, std::shared_ptr<const Error> cause)
    : std::runtime_error(message),
      identifier_(std::move(identifier)),
      arguments_(std::move(arguments)),
      stack_(std::move(stack)),
      cause_(std::move(cause)) {}

Error::~Error() = default;

Interrupted::Interrupted() : std::runtime_error("The evaluation was interrupted.") {}

Interrupted::~Interrupted() = default;

}  // namespace kv
