#include "kv/errors/PassThrough.h"

namespace kv::errors {

// Out of line, so that there is one type description for all libraries.
PassThrough::~PassThrough() = default;

}  // namespace kv::errors
