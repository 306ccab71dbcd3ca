#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "kx/array.h"

/// String arrays: each element a UTF-16 text or missing.
namespace Torvane::String {

KV_HOST_API bool isString(const kxArray* array) noexcept;

/// Element `index`, or nothing where it is missing. Lives: as long as the payload.
/// Requires: a string array with that element.
KV_HOST_API std::optional<std::u16string_view> getString(const kxArray* array, std::size_t index);

/// A string array whose elements are missing until they are set.
KV_HOST_API matrix::ArrayPtr createStringArray(std::size_t rows, std::size_t columns);

/// For the maker of an array that isn't shared yet.
KV_HOST_API void setString(kxArray* array, std::size_t index, std::u16string_view text);

/// The char form: a string scalar gives a char row; one with more elements a cell of char rows.
/// Errors: "KALVEX:string:MissingNotSupported".
KV_HOST_API matrix::ArrayPtr convertStringsToChars(const kxArray* array);

}  // namespace Torvane::String
