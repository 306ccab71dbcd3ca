#pragma once

#include <arrow/io/interfaces.h>
#include <arrow/result.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "source/SourceInput.h"

namespace kv::runtime {

/// A file as Arrow's readers read it: by position, never by a memory map.
///
/// Exceptions don't pass through Arrow's code: a read that fails returns a status, and the
/// exception is kept for `rethrowFailure`.
///
/// Threads: one at a time.
class ArrowInput final : public arrow::io::RandomAccessFile {
 public:
  /// Errors: as for SourceInput.
  ArrowInput(const SourceFile& file, arrow::MemoryPool* pool) : input_(file), pool_(pool) {}

  const SourceInput& source() const { return input_; }

  /// Rethrows the exception of the read that failed, if any.
  void rethrowFailure() const;

  arrow::Status Close() override;
  bool closed() const override { return false; }
  arrow::Result<std::int64_t> Tell() const override { return position_; }
  arrow::Status Seek(std::int64_t position) override;
  arrow::Result<std::int64_t> GetSize() override { return input_.file().bytes; }
  arrow::Result<std::int64_t> Read(std::int64_t bytes, void* to) override;
  arrow::Result<std::shared_ptr<arrow::Buffer>> Read(std::int64_t bytes) override;
  using RandomAccessFile::ReadAt;
  arrow::Result<std::int64_t> ReadAt(std::int64_t position, std::int64_t bytes, void* to) override;
  arrow::Result<std::shared_ptr<arrow::Buffer>> ReadAt(std::int64_t position,
                                                       std::int64_t bytes) override;

 private:
  /// The part of a request that lies in the file.
  std::int64_t bytesAt(std::int64_t position, std::int64_t bytes) const;

  SourceInput input_;
  arrow::MemoryPool* pool_;
  std::int64_t position_ = 0;
  std::exception_ptr failure_;
};

/// The status of an action of Arrow's libraries; that of Parquet reports some failures by
/// exceptions.
///
/// Errors: std::bad_alloc if memory runs out; what a read of `input` threw.
arrow::Status statusOf(const ArrowInput& input, const std::function<arrow::Status()>& action);

}  // namespace kv::runtime
