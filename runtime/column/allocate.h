#pragma once

#include <arrow/buffer.h>
#include <arrow/result.h>

#include <cassert>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// A new buffer of `bytes` bytes with undefined content, from currentPool().
///
/// Errors: std::bad_alloc if memory runs out.
std::shared_ptr<arrow::Buffer> allocateBuffer(std::int64_t bytes);

/// Errors: std::bad_alloc if `status` reports lack of memory. All other statuses are left to the
///         caller, who would otherwise take lack of memory for a fault of the data.
void throwIfOutOfMemory(const arrow::Status& status);

/// Turns a status of Arrow into one of our exceptions, without Arrow's text.
///
/// Errors: std::bad_alloc if memory runs out; "KALVEX:memory:TextTooLarge" for more than 2 GiB of
///         text in one column; std::logic_error for a status that only a fault of ours can cause.
void checkArrow(const arrow::Status& status);

/// What `result` holds. Errors: as for a status.
template <class T>
T checkArrow(arrow::Result<T> result) {
  checkArrow(result.status());
  return *std::move(result);
}

/// A column of one row that holds `value`.
///
/// Requires: `T` is the C++ type of an element of `type`.
template <class T>
Column scalarColumn(ElementType type, T value) {
  assert(sizeof(T) == elementSize(type));
  auto buffer = allocateBuffer(sizeof(T));
  std::memcpy(buffer->mutable_data(), &value, sizeof(T));
  return Column(type, 1, std::move(buffer));
}

}  // namespace kv::runtime
