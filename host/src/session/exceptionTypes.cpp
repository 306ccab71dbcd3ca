#include "foundation/exception.h"

namespace foundation::core::except {

// Out of line, so that there is one type description for all libraries.
IException::~IException() = default;
IUserException::~IUserException() = default;
IMsgIDException::~IMsgIDException() = default;

std::string IMsgIDException::get_error_id() const {
  std::string id(get_category());
  id += ':';
  id += get_key();
  return id;
}

}  // namespace foundation::core::except
