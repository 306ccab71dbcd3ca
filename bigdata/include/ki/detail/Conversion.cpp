#include "ki/detail/Conversion.h"

#include "util/ErrorIds.h"

namespace bigdata::ki::detail {

std::string describeArray(const kxArray* array) {
  if (array == nullptr) {
    return "[]";
  }
  std::string text;
  for (const std::size_t size : kxGetDimensions(array)) {
    text += (text.empty() ? "" : "x") + std::to_string(size);
  }
  return text + " " + kxGetClassName(array);
}

void raiseInvalidInput(std::string_view expected, std::string_view came) {
  foundation::core::except::raise<KALVEX::validateattributes::invalidType>("Input", expected, came);
}

}  // namespace bigdata::ki::detail
