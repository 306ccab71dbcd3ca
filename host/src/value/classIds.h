#pragma once

#include <cstddef>
#include <string_view>

#include "kx/array.h"

namespace kv::host {

/// What the class ids stand for. `elementBytes` is 0 where elements aren't plain memory.
struct ClassIdFacts {
  std::string_view name;
  std::size_t elementBytes;
  bool isNumeric;
};

const ClassIdFacts& classIdFacts(kxClassID classId) noexcept;

/// Calls `visit` with a null `const T*` for the element type of a numeric class, logical or char;
/// does nothing for others.
template <class Visit>
void withElementType(kxClassID classId, Visit visit) {
  switch (classId) {
    case kxLOGICAL_CLASS:
      visit(static_cast<const bool*>(nullptr));
      break;
    case kxCHAR_CLASS:
      visit(static_cast<const char16_t*>(nullptr));
      break;
    case kxDOUBLE_CLASS:
      visit(static_cast<const double*>(nullptr));
      break;
    case kxSINGLE_CLASS:
      visit(static_cast<const float*>(nullptr));
      break;
    case kxINT8_CLASS:
      visit(static_cast<const std::int8_t*>(nullptr));
      break;
    case kxUINT8_CLASS:
      visit(static_cast<const std::uint8_t*>(nullptr));
      break;
    case kxINT16_CLASS:
      visit(static_cast<const std::int16_t*>(nullptr));
      break;
    case kxUINT16_CLASS:
      visit(static_cast<const std::uint16_t*>(nullptr));
      break;
    case kxINT32_CLASS:
      visit(static_cast<const std::int32_t*>(nullptr));
      break;
    case kxUINT32_CLASS:
      visit(static_cast<const std::uint32_t*>(nullptr));
      break;
    case kxINT64_CLASS:
      visit(static_cast<const std::int64_t*>(nullptr));
      break;
    case kxUINT64_CLASS:
      visit(static_cast<const std::uint64_t*>(nullptr));
      break;
    default:
      break;
  }
}

}  // namespace kv::host
