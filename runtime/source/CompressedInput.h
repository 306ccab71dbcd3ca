#pragma once

#include <arrow/util/compression.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string_view>
#include <vector>

#include "column/MemoryLedger.h"
#include "source/SourceInput.h"

namespace kv::runtime {

/// How a file is compressed.
enum class Compression : std::uint8_t { None, Gzip, Bzip2, Zstd, Lz4 };

inline constexpr std::size_t kCompressions = 5;

/// As users know it: "gzip".
std::string_view compressionName(Compression compression);

/// The compression of a file, by its first bytes.
///
/// Errors: as for SourceInput.
Compression compressionOf(const SourceFile& file);

/// The bytes that a compressed file holds, in their order. The file may consist of several
/// compressed streams, one after the other, as `cat` makes them; zeros at its end are ignored.
///
/// Memory: 256 KiB, and what the library keeps, which is charged to the ledger of the thread: up to
///         8 MiB. A file made by zstd with `--long` needs up to 128 MiB, of which 8 are charged.
/// Threads: one at a time.
class CompressedInput {
 public:
  /// Requires: `compression` isn't None.
  /// Errors:   as for SourceInput.
  CompressedInput(SourceFile file, Compression compression);

  /// Reads the next bytes, fewer than `bytes` only at the end.
  ///
  /// Errors: "KALVEX:datastore:BadCompression" for a file that is damaged or ends early; as for
  ///         SourceInput.
  std::size_t read(char* to, std::size_t bytes);

  /// True if a call of `read` has met the end.
  bool isAtEnd() const { return isAtEnd_; }

 private:
  bool refill();
  bool beginStream();
  std::size_t readStream(char* to, std::size_t bytes);
  [[noreturn]] void throwBad(const char* fault) const;

  SourceInput input_;
  Compression compression_;
  std::unique_ptr<arrow::util::Codec> codec_;
  std::shared_ptr<arrow::util::Decompressor> stream_;
  MemoryCharge library_;           ///< what the library allocates
  std::pmr::vector<char> packed_;  ///< [begin_, end_) was read but not taken by the library
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::int64_t nextByte_ = 0;  ///< of the file, to be read
  bool isInStream_ = true;
  bool mayHoldMore_ = false;  ///< the library has bytes that had no room
  bool isAtEnd_ = false;
};

}  // namespace kv::runtime
