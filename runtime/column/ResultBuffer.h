#pragma once

#include <arrow/buffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "column/MemoryLedger.h"

namespace kv::runtime {

/// Memory for a result that is put together from parts: its size is known, but only what was
/// appended takes memory and counts, so parts can be freed as they are appended.
class ResultBuffer {
 public:
  /// Errors: std::bad_alloc.
  explicit ResultBuffer(std::int64_t bytes);

  /// Copies `bytes` bytes to the end.
  /// Requires: there is room for them.
  /// Errors: std::bad_alloc if the limit of this thread's ledger doesn't allow it.
  void append(const void* source, std::int64_t bytes);

  /// The next `bytes` bytes, to be written; otherwise as append().
  std::byte* next(std::int64_t bytes);

  /// What was appended; the last call.
  std::shared_ptr<arrow::Buffer> finish();

 private:
  class Mapped;

  std::shared_ptr<Mapped> buffer_;
  std::int64_t used_ = 0;
};

}  // namespace kv::runtime
