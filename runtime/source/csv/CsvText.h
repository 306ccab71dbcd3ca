#pragma once

#include <cstddef>
#include <memory>

#include "source/csv/CsvFile.h"

namespace kv::runtime {

/// The text of a CSV file, or of a part of it, from its first byte to its last.
///
/// Threads: one at a time.
class CsvText {
 public:
  virtual ~CsvText() = default;

  /// Reads the next bytes, fewer than `bytes` only at the end.
  ///
  /// Errors: as for SourceInput and CompressedInput.
  virtual std::size_t read(char* to, std::size_t bytes) = 0;

  /// True if a call of `read` has met the end.
  virtual bool isAtEnd() const = 0;
};

/// `range`: bytes of a file that isn't compressed; of one that is, all its text is read.
/// Errors:  as for SourceInput.
std::unique_ptr<CsvText> openText(const CsvFile& file, ByteRange range);

}  // namespace kv::runtime
