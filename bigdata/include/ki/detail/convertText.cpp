#include "ki/detail/convertText.h"

#include <optional>

#include "kx/string.h"
#include "util/ErrorIds.h"

namespace bigdata::ki {

namespace {

using foundation::core::except::raise;

bool isCharsOfShape(const kxArray* array, TextShape shape) {
  if (kxGetClassID(array) != kxCHAR_CLASS) {
    return false;
  }
  if (shape == TextShape::AnyChars) {
    return true;
  }
  const auto sizes = kxGetDimensions(array);
  return sizes.size() == 2 && (sizes[0] == 1 || (sizes[0] == 0 && sizes[1] == 0));
}

bool isStringScalar(const kxArray* array) {
  return Torvane::String::isString(array) && kxGetNumberOfElements(array) == 1;
}

}  // namespace

std::u16string_view toText(const kxArray* array, TextShape shape) {
  if (array != nullptr && isCharsOfShape(array, shape)) {
    return kxGetChars(array);
  }
  if (array == nullptr || !isStringScalar(array)) {
    raise<KALVEX::string::MustBeStringScalarOrCharacterVector>();
  }
  const std::optional<std::u16string_view> text = Torvane::String::getString(array, 0);
  if (!text) {
    raise<KALVEX::string::MissingNotSupported>();
  }
  return *text;
}

bool isText(const kxArray* array, TextShape shape) {
  if (array == nullptr) {
    return false;
  }
  return isCharsOfShape(array, shape) ||
         (isStringScalar(array) && Torvane::String::getString(array, 0).has_value());
}

}  // namespace bigdata::ki
