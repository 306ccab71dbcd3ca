#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "kcos/interned.h"
#include "kv/host/export.h"

/// A value of the host: immutable, with a class id, at least two dimensions (column-major) and a
/// shared payload.
///
/// 1. An array has a reference count of its own, 0 for one owner. `kxAddReference` adds an owner;
///    the deleter removes one.
/// 2. A shared copy is a new array on the same payload: one allocation and no data.
/// 3. Payload counts are atomic: a numeric, logical, char or string value may be read and dropped
///    by any thread. Arrays that refer to objects belong to their session's thread; dropped
///    elsewhere, they go to the session's release queue.
/// 4. The `kxSet...` functions are for an array that is still being filled by its maker.
class kxArray;

enum kxClassID : int {
  kxUNKNOWN_CLASS = 0,
  kxCELL_CLASS = 1,
  kxSTRUCT_CLASS = 2,
  kxLOGICAL_CLASS = 3,
  kxCHAR_CLASS = 4,
  kxDOUBLE_CLASS = 6,
  kxSINGLE_CLASS = 7,
  kxINT8_CLASS = 8,
  kxUINT8_CLASS = 9,
  kxINT16_CLASS = 10,
  kxUINT16_CLASS = 11,
  kxINT32_CLASS = 12,
  kxUINT32_CLASS = 13,
  kxINT64_CLASS = 14,
  kxUINT64_CLASS = 15,
  kxFUNCTION_CLASS = 16,
  kxSTRING_CLASS = 17,
  kxOBJECT_CLASS = 18,
};

/// Where an array is held; `kxPropertyScope` is for an array inside an object.
enum kxVariableScope : int { kxLocalScope = 0, kxPropertyScope = 6 };

namespace matrix {

/// Frees an array and its hold on the payload. Null does nothing.
KV_HOST_API void destroyArray(kxArray* array) noexcept;

namespace detail {

/// Deleter of an array with several owners: removes one owner; the last one destroys the array.
struct kxDestroy_deleter {
  KV_HOST_API void operator()(kxArray* array) const noexcept;
};

/// A new array that shares the payload of `array`; null for null. The caller owns it.
[[nodiscard]] KV_HOST_API kxArray* do_shared_copy(const kxArray* array);

/// Errors: "KALVEX:TooManyOutputs".
[[noreturn]] KV_HOST_API void error_maxlhs();
/// Errors: "KALVEX:TooManyInputs".
[[noreturn]] KV_HOST_API void error_maxrhs();
/// Errors: "KALVEX:NotEnoughInputs".
[[noreturn]] KV_HOST_API void error_minrhs();

}  // namespace detail

/// An owned array.
using ArrayPtr = std::unique_ptr<kxArray, detail::kxDestroy_deleter>;

/// Takes the ownership of a raw array.
inline ArrayPtr from_kalvex(kxArray* array) { return ArrayPtr(array); }

/// Releases an owned array as a raw one.
[[nodiscard]] inline kxArray* to_kalvex(ArrayPtr array) { return array.release(); }

/// Another owner of `array`'s payload; null for null.
inline ArrayPtr sharedCopy(const kxArray* array) {
  return from_kalvex(detail::do_shared_copy(array));
}

/// A string scalar.
KV_HOST_API ArrayPtr create(std::u16string_view text);
KV_HOST_API ArrayPtr create(std::string_view utf8);

/// A char row of `text`; 0-by-0 for an empty one.
KV_HOST_API ArrayPtr createChars(std::u16string_view text);
KV_HOST_API ArrayPtr createChars(std::string_view utf8);

}  // namespace matrix

// What an array is.
// A null array has class kxUNKNOWN_CLASS, is not scalar and is empty.

KV_HOST_API kxClassID kxGetClassID(const kxArray* array) noexcept;

/// "double", "cell", "function_handle", ..., or the class name of an object array.
KV_HOST_API std::string kxGetClassName(const kxArray* array);

/// True if the class of `array` is `className`, or, for objects, a subclass of it.
KV_HOST_API bool kxIsA(const kxArray* array, kcos::COSInternedBase className);
KV_HOST_API bool kxIsA(const kxArray* array, kcos::NameRef className);

KV_HOST_API bool kxIsNumeric(const kxArray* array) noexcept;  ///< not logical, not char
KV_HOST_API bool kxIsScalar(const kxArray* array) noexcept;
KV_HOST_API bool kxIsEmpty(const kxArray* array) noexcept;
KV_HOST_API std::size_t kxGetNumberOfElements(const kxArray* array) noexcept;
KV_HOST_API std::size_t kxGetM(const kxArray* array) noexcept;  ///< first dimension
KV_HOST_API std::size_t kxGetN(const kxArray* array) noexcept;  ///< product of the others
/// At least two dimensions. Lives: as long as the array.
KV_HOST_API std::span<const std::size_t> kxGetDimensions(const kxArray* array) noexcept;

/// Adds an owner to this very array.
KV_HOST_API void kxAddReference(kxArray* array) noexcept;
/// The array's own reference count: owners beyond the first.
KV_HOST_API std::size_t kxGetReferenceCount(const kxArray* array) noexcept;

/// True for one array, one payload or scalars of one object; two plain scalars are never the same.
KV_HOST_API bool kxIsSameValue(const kxArray* a, const kxArray* b) noexcept;

// Numbers, logicals, characters.

[[nodiscard]] KV_HOST_API kxArray* kxCreateDoubleScalar(double value);
[[nodiscard]] KV_HOST_API kxArray* kxCreateLogicalScalar(bool value);
/// Zeros. `complexity` must be 0: the host has real numbers only.
[[nodiscard]] KV_HOST_API kxArray* kxCreateDoubleMatrix(std::size_t rows, std::size_t columns,
                                                        int complexity);
/// Zeros of a numeric class, logical or char.
/// Errors: "KALVEX:CountTooLarge"; std::bad_alloc.
[[nodiscard]] KV_HOST_API kxArray* kxCreateNumericArray(std::span<const std::size_t> dimensions,
                                                        kxClassID classId);
/// A numeric or logical array over borrowed memory, column-major; `keepAlive` is dropped, on any
/// thread, with the last array on it.
[[nodiscard]] KV_HOST_API kxArray* kxCreateBorrowedArray(std::span<const std::size_t> dimensions,
                                                         kxClassID classId, const void* data,
                                                         std::shared_ptr<const void> keepAlive);

/// First element of a numeric, logical or char array as a double; NaN where there is none.
KV_HOST_API double kxGetScalar(const kxArray* array) noexcept;
/// Requires: class logical.
KV_HOST_API const bool* kxGetLogicals(const kxArray* array) noexcept;
/// Elements of a numeric, logical or char array; null where there are none.
/// Lives: as long as the array, since a single element is in the array itself.
KV_HOST_API const void* kxGetData(const kxArray* array) noexcept;
/// For the maker of an array that isn't shared yet.
KV_HOST_API void* kxGetMutableData(kxArray* array);
/// Bytes of an element of a numeric, logical or char class; 0 for others.
KV_HOST_API std::size_t kxGetElementSize(kxClassID classId) noexcept;
/// The characters of a char array, column-major. Lives: as long as the array.
KV_HOST_API std::u16string_view kxGetChars(const kxArray* array) noexcept;

// Cells and structures.
// Elements are null until set. Setting takes ownership of the value. Reading doesn't pass
// ownership.

[[nodiscard]] KV_HOST_API kxArray* kxCreateCellMatrix(std::size_t rows, std::size_t columns);
/// Null also if the array isn't a cell, or has no such element.
KV_HOST_API const kxArray* kxGetCell(const kxArray* array, std::size_t index) noexcept;
KV_HOST_API void kxSetCell(kxArray* array, std::size_t index, kxArray* value);

[[nodiscard]] KV_HOST_API kxArray* kxCreateStructMatrix(std::size_t rows, std::size_t columns,
                                                        std::span<const std::string_view> fields);
KV_HOST_API std::size_t kxGetNumberOfFields(const kxArray* array) noexcept;
/// Lives: as long as the payload.
KV_HOST_API std::string_view kxGetFieldName(const kxArray* array, std::size_t field) noexcept;
/// Null where there is no such field or nothing was set.
KV_HOST_API const kxArray* kxGetField(const kxArray* array, std::size_t index,
                                      std::string_view field) noexcept;
/// Errors: std::logic_error if there is no such field; the value is freed then.
KV_HOST_API void kxSetField(kxArray* array, std::size_t index, std::string_view field,
                            kxArray* value);

/// Gives a cell, structure or string array that isn't shared yet other dimensions: at least two,
/// for the same number of elements. Trailing dimensions of 1 after the second are dropped.
/// Errors: std::logic_error.
KV_HOST_API void kxSetDimensions(kxArray* array, std::span<const std::size_t> dimensions);

// Properties and lifetime.

/// Property `name` of element `index` of an object array, as a shared copy that the caller owns.
/// Errors: "KALVEX:class:InvalidHandle", "KALVEX:class:NoSuchMember"; those of a computed property.
[[nodiscard]] KV_HOST_API kxArray* kxGetPropertyShared(const kxArray* array, std::size_t index,
                                                       kcos::NameRef name);

KV_HOST_API void kxSetArrayScope(kxArray* array, kxVariableScope scope) noexcept;

/// Issues a warning of the session: id and arguments; the text comes from the catalogue.
KV_HOST_API void kxWarningMsgId(std::string_view identifier,
                                std::span<const std::string> arguments);
