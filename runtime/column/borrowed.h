#pragma once

#include <cstdint>
#include <memory>

#include "kv/runtime/Column.h"

/// Columns over memory that belongs to someone else and may change once a computation has ended.
/// What leaves the engine must not depend on such memory: it is copied.
namespace kv::runtime {

/// A buffer over `bytes` bytes at `data`.
///
/// Lives: keeps `owner`; without one, the memory must outlive the buffer.
std::shared_ptr<arrow::Buffer> borrowedBuffer(const void* data, std::int64_t bytes,
                                              std::shared_ptr<const void> owner);

/// The same column, marked as borrowed.
Column asBorrowed(const Column& column);

/// True if a buffer of the column is borrowed.
bool isBorrowed(const Column& column);

/// The column, or a copy of its rows if it is borrowed.
/// Errors: std::bad_alloc.
Column owned(const Column& column);

}  // namespace kv::runtime
