#include "util/InternalError.h"

#include "util/ErrorIds.h"

namespace bigdata {

void throwInternalError(std::string_view text) {
  foundation::core::except::raise<KALVEX::bigdata::array::InternalError>(text);
}

}  // namespace bigdata
