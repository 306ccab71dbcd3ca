#include "column/borrowed.h"

#include <arrow/array/array_base.h>
#include <arrow/array/concatenate.h>
#include <arrow/array/data.h>
#include <arrow/array/util.h>
#include <arrow/buffer.h>
#include <arrow/result.h>

#include <algorithm>
#include <utility>

#include "column/allocate.h"
#include "column/pool.h"

namespace kv::runtime {

namespace {

class BorrowedBuffer final : public arrow::Buffer {
 public:
  BorrowedBuffer(const void* data, std::int64_t bytes, std::shared_ptr<const void> owner)
      : arrow::Buffer(static_cast<const std::uint8_t*>(data), bytes), owner_(std::move(owner)) {}

 private:
  std::shared_ptr<const void> owner_;
};

bool isBorrowed(const std::shared_ptr<arrow::Buffer>& buffer) {
  for (const arrow::Buffer* part = buffer.get(); part != nullptr; part = part->parent().get()) {
    if (dynamic_cast<const BorrowedBuffer*>(part) != nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::shared_ptr<arrow::Buffer> borrowedBuffer(const void* data, std::int64_t bytes,
                                              std::shared_ptr<const void> owner) {
  return std::make_shared<BorrowedBuffer>(data, bytes, std::move(owner));
}

Column asBorrowed(const Column& column) {
  const std::shared_ptr<arrow::ArrayData> data = column.data()->Copy();
  for (std::shared_ptr<arrow::Buffer>& buffer : data->buffers) {
    if (buffer != nullptr) {
      const arrow::Buffer& bytes = *buffer;
      buffer = borrowedBuffer(bytes.data(), bytes.size(), buffer);
    }
  }
  const Column borrowed(column.type(), data);
  return column.isNullable() ? borrowed.asNullable() : borrowed;
}

bool isBorrowed(const Column& column) {
  return std::ranges::any_of(
      column.data()->buffers,
      [](const std::shared_ptr<arrow::Buffer>& buffer) { return isBorrowed(buffer); });
}

Column owned(const Column& column) {
  if (!isBorrowed(column)) {
    return column;
  }
  // Of one array Arrow makes a copy, too.
  const auto copy = arrow::Concatenate({arrow::MakeArray(column.data())}, currentPool());
  checkArrow(copy.status());
  const Column owned(column.type(), (*copy)->data());
  return column.isNullable() ? owned.asNullable() : owned;
}

}  // namespace kv::runtime
