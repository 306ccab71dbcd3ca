#include "engine/ShortChunks.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>
#include <utility>

#include "column/concatenate.h"

namespace kv::runtime {

namespace {

class ShortChunkReader final : public ChunkReader {
 public:
  ShortChunkReader(std::unique_ptr<ChunkReader> reader, std::int64_t maxRows)
      : reader_(std::move(reader)), maxRows_(maxRows) {}

  std::optional<Chunk> next() override {
    if (!chunk_ || first_ == chunk_->rows()) {
      chunk_ = reader_->next();
      first_ = 0;
    }
    if (!chunk_) {
      return std::nullopt;
    }
    const std::int64_t rows = std::min(maxRows_, chunk_->rows() - first_);
    return slice(*chunk_, std::exchange(first_, first_ + rows), rows);
  }

  std::int64_t skippedRows() const override { return reader_->skippedRows(); }

 private:
  std::unique_ptr<ChunkReader> reader_;
  std::int64_t maxRows_;
  std::optional<Chunk> chunk_;
  std::int64_t first_ = 0;  ///< row of `chunk_` that comes next
};

}  // namespace

std::int64_t maxChunkRows() {
  const char* world = std::getenv("KV_CHUNK_ROWS");
  const std::int64_t rows = world == nullptr ? 0 : std::strtoll(world, nullptr, 10);
  return rows > 0 ? rows : std::numeric_limits<std::int64_t>::max();
}

std::unique_ptr<ChunkReader> inShortChunks(std::unique_ptr<ChunkReader> reader) {
  const std::int64_t rows = maxChunkRows();
  return rows < std::numeric_limits<std::int64_t>::max()
             ? std::make_unique<ShortChunkReader>(std::move(reader), rows)
             : std::move(reader);
}

}  // namespace kv::runtime
