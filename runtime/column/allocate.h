#pragma once

#include <arrow/buffer.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// A new buffer of `bytes` bytes, whose contents are undefined, from Arrow's default memory pool.
///
/// Errors: std::bad_alloc when memory is short.
std::shared_ptr<arrow::Buffer> allocateBuffer(std::int64_t bytes);

/// Errors: std::bad_alloc if `status` says that memory is short. What else it says is for the
///         caller, who would take want of memory for a fault of the data otherwise.
void throwIfOutOfMemory(const arrow::Status& status);

/// Turns a status of Arrow into our exceptions, without its text.
///
/// Errors: std::bad_alloc when memory is short; "KALVEX:memory:TextTooLarge" for texts of more than
///         2 GiB in one column (FunctionError); std::logic_error for a status that only a fault of
///         ours explains.
void checkArrow(const arrow::Status& status);

/// A column of one row that holds `value`.
///
/// Requires: `T` is the C++ type of an element of `type`.
template <class T>
Column scalarColumn(ElementType type, T value) {
  auto buffer = allocateBuffer(sizeof(T));
  std::memcpy(buffer->mutable_data(), &value, sizeof(T));
  return Column(type, 1, std::move(buffer));
}

}  // namespace kv::runtime
