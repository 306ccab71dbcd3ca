#include "kx/string.h"

#include <cassert>
#include <cstring>
#include <memory>

#include "foundation/i18n.h"
#include "heap/Array.h"
#include "kv/host/errors.h"
#include "value/counts.h"

using kv::host::StringsPayload;

namespace matrix {

ArrayPtr create(std::u16string_view text) {
  ArrayPtr array = Torvane::String::createStringArray(1, 1);
  Torvane::String::setString(array.get(), 0, text);
  return array;
}

ArrayPtr create(std::string_view utf8) { return create(fl::i18n::to_ustring(utf8)); }

ArrayPtr createChars(std::u16string_view text) {
  const std::size_t dimensions[] = {text.empty() ? 0u : 1u, text.size()};
  ArrayPtr array = from_kalvex(kxCreateNumericArray(dimensions, kxCHAR_CLASS));
  if (!text.empty()) {
    std::memcpy(kxGetMutableData(array.get()), text.data(), text.size() * sizeof(char16_t));
  }
  return array;
}

ArrayPtr createChars(std::string_view utf8) { return createChars(fl::i18n::to_ustring(utf8)); }

}  // namespace matrix

namespace Torvane::String {

namespace {

StringsPayload* payloadOf(const kxArray* array) noexcept {
  return static_cast<StringsPayload*>(array->payload);
}

}  // namespace

bool isString(const kxArray* array) noexcept { return kxGetClassID(array) == kxSTRING_CLASS; }

std::optional<std::u16string_view> getString(const kxArray* array, std::size_t index) {
  assert(isString(array) && index < kxGetNumberOfElements(array));
  const std::optional<std::u16string>& text = payloadOf(array)->texts[index];
  return text ? std::optional<std::u16string_view>(*text) : std::nullopt;
}

matrix::ArrayPtr createStringArray(std::size_t rows, std::size_t columns) {
  auto payload = std::make_unique<StringsPayload>(kv::host::elementCount(rows, columns));
  auto array = matrix::from_kalvex(new kxArray(kxSTRING_CLASS, rows, columns));
  array->putPayload(payload.release());
  return array;
}

void setString(kxArray* array, std::size_t index, std::u16string_view text) {
  StringsPayload& payload = *payloadOf(array);
  payload.texts[index].emplace(text);
  payload.charge(text.size() * sizeof(char16_t));
}

matrix::ArrayPtr convertStringsToChars(const kxArray* array) {
  const auto charsOf = [array](std::size_t index) {
    const std::optional<std::u16string_view> text = getString(array, index);
    if (!text) {
      kv::host::raise("KALVEX:string:MissingNotSupported");
    }
    return matrix::createChars(*text);
  };
  if (kxIsScalar(array)) {
    return charsOf(0);
  }
  auto cell = matrix::from_kalvex(kxCreateCellMatrix(kxGetM(array), kxGetN(array)));
  for (std::size_t i = 0; i < kxGetNumberOfElements(array); ++i) {
    kxSetCell(cell.get(), i, charsOf(i).release());
  }
  return cell;
}

}  // namespace Torvane::String
