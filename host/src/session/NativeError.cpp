#include "session/NativeError.h"

#include "foundation/i18n.h"
#include "kv/host/errors.h"

namespace kv::host {

NativeError::NativeError(std::string_view identifier, const std::vector<std::string>& arguments)
    : text_(std::string(identifier) + ": " + catalogueText(identifier, arguments)) {
  const std::size_t split = identifier.rfind(':');
  if (split != std::string_view::npos) {
    category_ = identifier.substr(0, split);
    key_ = identifier.substr(split + 1);
  } else {
    key_ = identifier;
  }
  for (const std::string& argument : arguments) {
    arguments_.push_back(fl::i18n::to_ustring(argument));
  }
}

NativeError::~NativeError() = default;

}  // namespace kv::host
