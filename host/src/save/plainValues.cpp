#include "save/plainValues.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <string>

#include "kx/string.h"
#include "value/counts.h"

namespace kv::host {

namespace {

using namespace format;

std::u16string textAt(const SavedValue& value, std::size_t offset, std::size_t length) {
  std::u16string text(length, u'\0');
  if (value.form() == ValueForm::Narrow) {
    std::ranges::transform(value.contents.substr(offset, length), text.begin(),
                           [](char byte) { return static_cast<unsigned char>(byte); });
  } else {
    std::memcpy(text.data(), value.contents.data() + offset, length * sizeof(char16_t));
  }
  return text;
}

}  // namespace

Value makeNumbers(const SavedValue& value) {
  Value array = matrix::from_kalvex(kxCreateNumericArray(dimensionsOf(value), value.classId()));
  if (value.elements == 0) {
    return array;
  }
  void* data = kxGetMutableData(array.get());
  const std::size_t bytes = value.elements * kxGetElementSize(value.classId());
  assert(value.form() != ValueForm::Full || bytes <= value.contents.size());
  if (value.form() == ValueForm::Inline) {
    std::memcpy(data, &value.entry.payload, bytes);
  } else if (value.form() == ValueForm::Narrow) {
    std::ranges::transform(value.contents.substr(0, value.elements), static_cast<char16_t*>(data),
                           [](char byte) { return static_cast<unsigned char>(byte); });
  } else {
    std::memcpy(data, value.contents.data(), bytes);
  }
  return array;
}

Value makeTexts(const SavedValue& value) {
  Value array = Torvane::String::createStringArray(value.dimensions[0], columnsOf(value));
  kxSetDimensions(array.get(), dimensionsOf(value));
  std::size_t offset = value.elements * sizeof(TextLength);
  for (std::size_t i = 0; i < value.elements; ++i) {
    if (const std::size_t stored = value.number(i); stored > 0) {
      Torvane::String::setString(array.get(), i, textAt(value, offset, stored - 1));
      offset += (stored - 1) * (value.form() == ValueForm::Narrow ? 1 : sizeof(char16_t));
    }
  }
  return array;
}

std::span<const std::size_t> dimensionsOf(const SavedValue& value) {
  return {value.dimensions.data(), value.dimensions.size()};
}

std::size_t columnsOf(const SavedValue& value) { return columnCount(dimensionsOf(value), 1); }

}  // namespace kv::host
