#pragma once

#include <cstdint>
#include <utility>

#include "kx/array.h"

/// The C++ types of array elements: the one table between them and class ids, for both directions.
namespace kv::host {

template <class... T>
struct TypeList {};

/// Of the numeric classes, the most frequent first.
using NumberTypes = TypeList<double, float, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t,
                             std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

/// The class whose elements are `T`; kxUNKNOWN_CLASS if there is none.
template <class T>
inline constexpr kxClassID kClassOf = kxUNKNOWN_CLASS;
template <>
inline constexpr kxClassID kClassOf<bool> = kxLOGICAL_CLASS;
template <>
inline constexpr kxClassID kClassOf<char16_t> = kxCHAR_CLASS;
template <>
inline constexpr kxClassID kClassOf<double> = kxDOUBLE_CLASS;
template <>
inline constexpr kxClassID kClassOf<float> = kxSINGLE_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::int8_t> = kxINT8_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::uint8_t> = kxUINT8_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::int16_t> = kxINT16_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::uint16_t> = kxUINT16_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::int32_t> = kxINT32_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::uint32_t> = kxUINT32_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::int64_t> = kxINT64_CLASS;
template <>
inline constexpr kxClassID kClassOf<std::uint64_t> = kxUINT64_CLASS;

/// Calls `visit.template operator()<T>()` with the type of `types` whose class is `classId`.
///
/// Result: false, and nothing called, if there is none.
template <class Visit, class... T>
bool visitType(kxClassID classId, Visit&& visit, TypeList<T...> /*types*/) {
  return ((kClassOf<T> == classId && (visit.template operator()<T>(), true)) || ...);
}

/// The same for the numeric classes, which logical and char aren't.
template <class Visit>
bool visitNumberType(kxClassID classId, Visit&& visit) {
  return visitType(classId, std::forward<Visit>(visit), NumberTypes());
}

/// The same for all classes whose elements are plain memory: numeric, logical and char.
template <class Visit>
bool visitElementType(kxClassID classId, Visit&& visit) {
  return visitNumberType(classId, visit) || visitType(classId, visit, TypeList<bool, char16_t>());
}

}  // namespace kv::host
