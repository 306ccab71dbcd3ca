#include "source/ArrowInput.h"

#include <arrow/buffer.h>
#include <arrow/status.h>
#include <parquet/exception.h>

#include <algorithm>
#include <new>
#include <utility>

#include "column/allocate.h"

namespace kv::runtime {

void ArrowInput::rethrowFailure() const {
  if (failure_ != nullptr) {
    std::rethrow_exception(failure_);
  }
}

/// The file is closed with this object, which Arrow's reader shares.
arrow::Status ArrowInput::Close() { return arrow::Status::OK(); }

arrow::Status ArrowInput::Seek(std::int64_t position) {
  position_ = position;
  return arrow::Status::OK();
}

arrow::Result<std::int64_t> ArrowInput::Read(std::int64_t bytes, void* to) {
  ARROW_ASSIGN_OR_RAISE(const std::int64_t got, ReadAt(position_, bytes, to));
  position_ += got;
  return got;
}

arrow::Result<std::shared_ptr<arrow::Buffer>> ArrowInput::Read(std::int64_t bytes) {
  ARROW_ASSIGN_OR_RAISE(auto buffer, ReadAt(position_, bytes));
  position_ += buffer->size();
  return buffer;
}

arrow::Result<std::int64_t> ArrowInput::ReadAt(std::int64_t position, std::int64_t bytes,
                                               void* to) {
  const std::int64_t got = bytesAt(position, bytes);
  try {
    input_.readAt(position, static_cast<char*>(to), static_cast<std::size_t>(got));
  } catch (...) {
    failure_ = std::current_exception();
    return arrow::Status::IOError("reading failed");
  }
  return got;
}

arrow::Result<std::shared_ptr<arrow::Buffer>> ArrowInput::ReadAt(std::int64_t position,
                                                                 std::int64_t bytes) {
  const std::int64_t size = bytesAt(position, bytes);
  ARROW_ASSIGN_OR_RAISE(auto buffer, arrow::AllocateBuffer(size, pool_));
  ARROW_RETURN_NOT_OK(ReadAt(position, size, buffer->mutable_data()));
  return std::shared_ptr<arrow::Buffer>(std::move(buffer));
}

std::int64_t ArrowInput::bytesAt(std::int64_t position, std::int64_t bytes) const {
  const std::int64_t end = input_.file().bytes;
  return position < 0 || position > end ? 0 : std::clamp<std::int64_t>(bytes, 0, end - position);
}

arrow::Status statusOf(const ArrowInput& input, const std::function<arrow::Status()>& action) {
  arrow::Status status;
  try {
    status = action();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const parquet::ParquetStatusException& exception) {
    status = exception.status();
  } catch (const std::exception& exception) {
    status = arrow::Status::Invalid(exception.what());
  }
  if (!status.ok()) {
    input.rethrowFailure();
    throwIfOutOfMemory(status);
  }
  return status;
}

}  // namespace kv::runtime
