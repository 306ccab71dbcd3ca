// A compressed file can only be read from its first byte to its last: blocks of packed bytes go to
// the library, which unpacks them into the caller's memory. When that is full, the library may hold
// bytes for which no further input is needed (`mayHoldMore_`), so the end of the file isn't yet the
// end of the text. A file that ends within a stream is an error, never a shorter table.

#include "source/CompressedInput.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <string>
#include <utility>

#include "column/allocate.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

using namespace std::string_view_literals;

/// Bytes of a compressed file that are read at a time.
constexpr std::size_t kPackedBytes = 256 * 1024;

struct Known {
  std::string_view name;
  arrow::Compression::type codec;
  std::int64_t libraryBytes;             ///< that the library allocates at most, usually
  std::vector<std::string_view> magics;  ///< how such files begin
};

/// "BZh" alone could be the beginning of a text.
const std::array<Known, kCompressions>& knownCompressions() {
  static const std::array<Known, kCompressions> table{{
      {"no", arrow::Compression::UNCOMPRESSED, 0, {}},
      {"gzip", arrow::Compression::GZIP, 64 << 10, {"\x1F\x8B"sv}},
      {"bzip2", arrow::Compression::BZ2, 4 << 20, {"1AY&SY"sv, "\x17rE8P\x90"sv}},
      {"zstd", arrow::Compression::ZSTD, 8 << 20, {"\x28\xB5\x2F\xFD"sv}},
      {"lz4", arrow::Compression::LZ4_FRAME, 8 << 20, {"\x04\x22\x4D\x18"sv}},
  }};
  return table;
}

constexpr std::size_t kBzipHeader = 4;
constexpr std::size_t kMagicBytes = 10;

const Known& knownOf(Compression compression) {
  return knownCompressions().at(static_cast<std::size_t>(compression));
}

bool beginsLike(std::string_view bytes, Compression compression) {
  if (compression == Compression::Bzip2) {
    if (!bytes.starts_with("BZh") || bytes.size() < kBzipHeader) {
      return false;
    }
    bytes.remove_prefix(kBzipHeader);
  }
  const auto& magics = knownOf(compression).magics;
  return std::ranges::any_of(magics, [&](auto magic) { return bytes.starts_with(magic); });
}

}  // namespace

std::string_view compressionName(Compression compression) { return knownOf(compression).name; }

Compression compressionOf(const SourceFile& file) {
  std::array<char, kMagicBytes> bytes{};
  const auto size = static_cast<std::size_t>(
      std::min<std::int64_t>(file.bytes, static_cast<std::int64_t>(bytes.size())));
  SourceInput(file).readAt(0, bytes.data(), size);
  for (std::size_t i = 1; i < kCompressions; ++i) {
    const auto compression = static_cast<Compression>(i);
    if (beginsLike({bytes.data(), size}, compression)) {
      return compression;
    }
  }
  return Compression::None;
}

CompressedInput::CompressedInput(SourceFile file, Compression compression)
    : input_(std::move(file)),
      compression_(compression),
      codec_(checkArrow(arrow::util::Codec::Create(knownOf(compression).codec))),
      stream_(checkArrow(codec_->MakeDecompressor())),
      library_(currentLedger()),
      packed_(kPackedBytes, currentResource()) {
  assert(compression != Compression::None);
  library_.add(knownOf(compression).libraryBytes);
}

std::size_t CompressedInput::read(char* to, std::size_t bytes) {
  std::size_t got = 0;
  while (got < bytes && !isAtEnd_) {
    if (begin_ == end_ && !mayHoldMore_ && !refill()) {
      if (isInStream_) {
        throwBad("ends early, as if the file weren't copied completely");
      }
      input_.throwIfReplaced();
      isAtEnd_ = true;
    } else if (isInStream_ || beginStream()) {
      got += readStream(to + got, bytes - got);
    }
  }
  return got;
}

/// Result: false at the end of the file.
bool CompressedInput::refill() {
  const auto bytes = static_cast<std::size_t>(
      std::min<std::int64_t>(std::ssize(packed_), input_.file().bytes - nextByte_));
  input_.readAt(nextByte_, packed_.data(), bytes);
  nextByte_ += static_cast<std::int64_t>(bytes);
  begin_ = 0;
  end_ = bytes;
  return bytes > 0;
}

/// Result: false if only zeros are left of what was read.
bool CompressedInput::beginStream() {
  while (begin_ < end_ && packed_[begin_] == '\0') {
    ++begin_;
  }
  if (begin_ == end_) {
    return false;
  }
  checkArrow(stream_->Reset());
  isInStream_ = true;
  return true;
}

std::size_t CompressedInput::readStream(char* to, std::size_t bytes) {
  const auto packed = static_cast<std::int64_t>(end_ - begin_);
  const auto result =
      stream_->Decompress(packed, reinterpret_cast<const std::uint8_t*>(packed_.data() + begin_),
                          static_cast<std::int64_t>(bytes), reinterpret_cast<std::uint8_t*>(to));
  if (!result.ok()) {
    throwIfOutOfMemory(result.status());
    throwBad("is damaged");
  }
  const auto written = static_cast<std::size_t>(result->bytes_written);
  begin_ += static_cast<std::size_t>(result->bytes_read);
  isInStream_ = !stream_->IsFinished();
  mayHoldMore_ = isInStream_ && written == bytes;
  if (isInStream_ && packed > 0 && result->bytes_read == 0 && written == 0) {
    throwBad("is damaged");
  }
  return written;
}

void CompressedInput::throwBad(const char* fault) const {
  const std::int64_t at = nextByte_ - static_cast<std::int64_t>(end_ - begin_);
  errors::raiseStep(
      "KALVEX:datastore:BadCompression",
      {input_.file().path, std::string(compressionName(compression_)), std::to_string(at), fault});
}

}  // namespace kv::runtime
