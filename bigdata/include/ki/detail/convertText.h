#pragma once

#include <string>
#include <string_view>

#include "ki/detail/Conversion.h"

namespace bigdata::ki {

enum class TextShape : bool {
  Row,       ///< a char row or 0-by-0
  AnyChars,  ///< a char array of any shape, read column by column
};

/// The characters of a char array of the given shape, or of a string scalar, UTF-16.
///
/// Errors: "KALVEX:string:MustBeStringScalarOrCharacterVector"; "KALVEX:string:MissingNotSupported"
///         for a missing string.
/// Lives:  as long as `array`.
std::u16string_view toText(const kxArray* array, TextShape shape = TextShape::Row);

/// True if `toText` would succeed.
bool isText(const kxArray* array, TextShape shape = TextShape::Row);

namespace detail {

template <>
struct Conversion<std::u16string> {
  static std::u16string fromArray(const kxArray* array) { return std::u16string(toText(array)); }
  static ArrayPtr toArray(std::u16string_view text) { return matrix::create(text); }
};

}  // namespace detail
}  // namespace bigdata::ki
