#include "source/csv/CsvText.h"

#include <algorithm>

#include "source/SourceInput.h"

namespace kv::runtime {

namespace {

class PlainText final : public CsvText {
 public:
  PlainText(const SourceFile& file, ByteRange range) : input_(file), rest_(range) {}

  std::size_t read(char* to, std::size_t bytes) override {
    const std::size_t got = std::min(bytes, static_cast<std::size_t>(rest_.end - rest_.begin));
    input_.readAt(rest_.begin, to, got);
    rest_.begin += static_cast<std::int64_t>(got);
    if (isAtEnd()) {
      input_.throwIfReplaced();
    }
    return got;
  }

  bool isAtEnd() const override { return rest_.begin == rest_.end; }

 private:
  SourceInput input_;
  ByteRange rest_;
};

class CompressedText final : public CsvText {
 public:
  explicit CompressedText(const CsvFile& file) : input_(file.file, file.compression) {}

  std::size_t read(char* to, std::size_t bytes) override { return input_.read(to, bytes); }
  bool isAtEnd() const override { return input_.isAtEnd(); }

 private:
  CompressedInput input_;
};

}  // namespace

std::unique_ptr<CsvText> openText(const CsvFile& file, ByteRange range) {
  if (file.compression == Compression::None) {
    return std::make_unique<PlainText>(file.file, range);
  }
  return std::make_unique<CompressedText>(file);
}

}  // namespace kv::runtime
