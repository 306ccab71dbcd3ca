#include <cassert>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>

#include "heap/Array.h"
#include "kv/host/elementTypes.h"
#include "kx/array.h"
#include "value/counts.h"

using kv::host::DataPayload;
using kv::host::trimmed;

namespace {

template <class T>
kxArray* scalar(kxClassID classId, T value) {
  auto* array = new kxArray(classId, 1, 1);
  array->putScalar(&value, sizeof(value));
  return array;
}

matrix::ArrayPtr makeHeader(std::span<const std::size_t> dimensions, kxClassID classId) {
  const std::size_t columns = kv::host::columnCount(dimensions, kxGetElementSize(classId));
  return matrix::from_kalvex(new kxArray(classId, dimensions[0], columns));
}

kxArray* give(matrix::ArrayPtr array, std::span<const std::size_t> dimensions,
              std::unique_ptr<DataPayload> payload) {
  if (dimensions.size() > 2) {
    payload->dimensions.assign(dimensions.begin(), dimensions.end());
  }
  array->putPayload(payload.release());
  return array.release();
}

}  // namespace

kxArray* kxCreateDoubleScalar(double value) { return scalar(kxDOUBLE_CLASS, value); }

kxArray* kxCreateLogicalScalar(bool value) { return scalar(kxLOGICAL_CLASS, value); }

kxArray* kxCreateDoubleMatrix(std::size_t rows, std::size_t columns, int /*complexity*/) {
  const std::size_t dimensions[] = {rows, columns};
  return kxCreateNumericArray(dimensions, kxDOUBLE_CLASS);
}

kxArray* kxCreateNumericArray(std::span<const std::size_t> allDimensions, kxClassID classId) {
  const std::span<const std::size_t> dimensions = trimmed(allDimensions);
  matrix::ArrayPtr array = makeHeader(dimensions, classId);
  const std::size_t count = array->elementCount();
  if (count == 1) {
    const std::uint64_t zero = 0;
    array->putScalar(&zero, sizeof(zero));
    return array.release();
  }
  if (count == 0 && dimensions.size() == 2) {
    return array.release();
  }
  return give(std::move(array), dimensions,
              std::make_unique<DataPayload>(count * kxGetElementSize(classId)));
}

kxArray* kxCreateBorrowedArray(std::span<const std::size_t> allDimensions, kxClassID classId,
                               const void* data, std::shared_ptr<const void> keepAlive) {
  const std::span<const std::size_t> dimensions = trimmed(allDimensions);
  return give(makeHeader(dimensions, classId), dimensions,
              std::make_unique<DataPayload>(data, std::move(keepAlive)));
}

double kxGetScalar(const kxArray* array) noexcept {
  double value = std::numeric_limits<double>::quiet_NaN();
  if (kxIsEmpty(array)) {
    return value;
  }
  kv::host::visitElementType(array->classId(), [&]<class T>() {
    value = static_cast<double>(*static_cast<const T*>(array->data()));
  });
  return value;
}

const bool* kxGetLogicals(const kxArray* array) noexcept {
  assert(kxGetClassID(array) == kxLOGICAL_CLASS);
  return static_cast<const bool*>(array->data());
}

const void* kxGetData(const kxArray* array) noexcept { return array->data(); }

void* kxGetMutableData(kxArray* array) {
  if (array->form == kxArray::Form::Payload) {
    DataPayload& payload = *array->dataPayload();
    if (payload.arrays.load(std::memory_order_relaxed) != 1 || !payload.isOwn()) {
      throw std::logic_error("data that is shared or borrowed doesn't change");
    }
    return payload.large != nullptr ? payload.large : payload.small;
  }
  return array->form == kxArray::Form::Scalar ? &array->bits : nullptr;
}

std::size_t kxGetElementSize(kxClassID classId) noexcept {
  std::size_t bytes = 0;
  kv::host::visitElementType(classId, [&]<class T>() { bytes = sizeof(T); });
  return bytes;
}

std::u16string_view kxGetChars(const kxArray* array) noexcept {
  const std::size_t count = kxGetNumberOfElements(array);
  return count == 0 ? std::u16string_view()
                    : std::u16string_view(static_cast<const char16_t*>(array->data()), count);
}
