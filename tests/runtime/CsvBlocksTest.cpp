#include "source/csv/CsvBlocks.h"

#include <arrow/csv/parser.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "source/csv/textCheck.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using namespace std::string_view_literals;
using kv::test::TempFolder;

struct FileContent {
  std::vector<std::string> header;
  std::vector<std::string> records;  ///< fields in `<>`
  std::int64_t rows = 0;
};

/// Fields of all records, column by column within a block.
FileContent readInBlocksOf(std::int64_t bytes, const SourceFile& file) {
  CsvBlocks blocks(CsvFile{file, usualFormat()}, bytes);
  FileContent content;
  content.header = blocks.readHeader();
  while (const auto block = blocks.next()) {
    EXPECT_EQ(block->firstRow, content.rows);
    std::vector<std::string> records(static_cast<std::size_t>(block->rows()));
    for (std::int32_t column = 0; column < block->fields->num_cols(); ++column) {
      std::size_t row = 0;
      const auto take = [&](const std::uint8_t* text, std::uint32_t size, auto...) {
        records[row++] += "<" + std::string(reinterpret_cast<const char*>(text), size) + ">";
        return arrow::Status::OK();
      };
      EXPECT_TRUE(block->fields->VisitColumn(column, take).ok());
    }
    content.records.insert(content.records.end(), records.begin(), records.end());
    content.rows += block->rows();
  }
  return content;
}

TEST(CsvBlocks, GiveTheSameRecordsWhereverBlocksEnd) {
  const TempFolder folder;
  const std::string text =
      "\xEF\xBB\xBF\r\n\"a\nb\",größe\r\n1,\"x\"\"y\"\r\n\r\n2,\"\r\n\"\"\r\n\"\r\n\"3\",東京\r\n"
      "4,\"\"\r\n5,last";
  const SourceFile file = SourceFile::stat(folder.write("a.csv", text));
  for (std::int64_t bytes = 3; bytes < 80; ++bytes) {
    SCOPED_TRACE(bytes);
    const FileContent content = readInBlocksOf(bytes, file);
    EXPECT_THAT(content.header, testing::ElementsAre("a\nb", "größe"));
    EXPECT_THAT(content.records, testing::ElementsAre("<1><x\"y>", "<2><\r\n\"\r\n>", "<3><東京>",
                                                      "<4><>", "<5><last>"));
  }
}

TEST(TextLength, EndsAtTheFirstByteThatIsntText) {
  const std::string ascii(1000, 'a');
  EXPECT_EQ(textLength(""), 0U);
  EXPECT_EQ(textLength(ascii), 1000U);
  const std::string_view endings[] = {"\0b"sv,    "\x80",         "\xC3",         "\xE6\x9D",
                                      "\xC0\x80", "\xED\xA0\x80", "\xF0\x9F\x98", "\xFF"};
  for (const std::string_view ending : endings) {
    for (const std::size_t before : {0U, 1U, 255U, 256U, 257U, 1000U}) {
      const std::string text = ascii.substr(0, before) + std::string(ending);
      EXPECT_EQ(textLength(text), before);
      EXPECT_EQ(textLength("é" + text), before + 2);
    }
  }
  EXPECT_TRUE(isCutCharacter("\xF0\x9F\x98"));
  EXPECT_FALSE(isCutCharacter("\xF0\x9F\x98\x80"));
  EXPECT_FALSE(isCutCharacter("\x80"));
  EXPECT_FALSE(isCutCharacter("\xC3\x28"));
}

}  // namespace
}  // namespace kv::runtime
