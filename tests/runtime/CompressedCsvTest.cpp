#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "runtime/fileBytes.h"
#include "runtime/readAll.h"
#include "source/csv/CsvDatastore.h"
#include "source/registry/openSource.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using kv::test::TempFolder;
using test::allTexts;
using test::stepErrorOf;
using testing::HasSubstr;

struct Compressor {
  Compression compression;
  arrow::Compression::type codec;
  const char* ending;
};

constexpr Compressor kCompressors[] = {
    {Compression::Gzip, arrow::Compression::GZIP, ".csv.gz"},
    {Compression::Bzip2, arrow::Compression::BZ2, ".csv.bz2"},
    {Compression::Zstd, arrow::Compression::ZSTD, ".csv.zst"},
    {Compression::Lz4, arrow::Compression::LZ4_FRAME, ".csv.lz4"},
};

std::string compressed(std::string_view text, const Compressor& with) {
  return test::compressed(text, with.codec);
}

class CompressedCsv : public testing::Test {
 protected:
  /// A file at rest, so that opening it doesn't wait for the clock.
  std::string write(const std::string& name, const std::string& bytes) {
    const std::string path = folder_.write(name, bytes);
    std::filesystem::last_write_time(
        path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    return path;
  }

  /// Longer than a block and than what is uncompressed at a time, and hard to compress.
  static std::string longText(std::size_t rows) {
    std::mt19937 random(static_cast<std::mt19937::result_type>(kv::test::drawSeed()));
    std::string text = "x;t\n";
    for (std::size_t row = 0; row < rows; ++row) {
      text += std::to_string(random()) + ";\"a\n" + std::to_string(random()) + "\"\n";
    }
    return text;
  }

  TempFolder folder_;
};

TEST_F(CompressedCsv, HasTheRowsOfItsTextInOnePartition) {
  const std::string text = longText(60'000);
  const auto plain = openCsv({write("plain.csv", text)});
  const std::vector<std::string> expected = allTexts(*plain, "t");
  const std::size_t half = text.size() / 2;
  for (const Compressor& with : kCompressors) {
    SCOPED_TRACE(with.ending);
    const std::string one = compressed(text, with);
    const std::string several = compressed(text.substr(0, half), with) + compressed("", with) +
                                compressed(text.substr(half), with) + std::string(600, '\0');
    for (const std::string& bytes : {one, several}) {
      const CsvDatastore source(std::vector{write("any.name", bytes)}, {}, {}, 1'000);
      EXPECT_EQ(source.numPartitions(), 1);
      EXPECT_EQ(source.cutFiner(2), nullptr);
      EXPECT_EQ(source.csv().compressions, std::vector{with.compression});
      EXPECT_EQ(allTexts(*openSource(source.describe()), "t"), expected);
    }
  }
}

TEST_F(CompressedCsv, IsReadBesideOtherFilesOfAFolder) {
  std::vector<std::string> expected{"0"};
  write("0.csv", "t,x\n0,a\n");
  for (const Compressor& with : kCompressors) {
    const std::string name = std::to_string(expected.size());
    write(name + with.ending, compressed("t,x\n" + name + ",b", with));
    expected.push_back(name);
  }
  const CsvDatastore source({folder_.path()}, {{"t", "string"}}, {}, 6);
  EXPECT_EQ(source.numPartitions(), 6);
  EXPECT_EQ(allTexts(source, "t"), expected);
  EXPECT_EQ(allTexts(*source.cutFiner(20), "t"), expected);
  const auto others = source.openOthers({folder_.path("0.csv"), folder_.path("1.csv.gz")});
  const FileDatastore::FileOf files[] = {{others.get(), 1}, {&source, 2}, {others.get(), 0}};
  EXPECT_EQ(allTexts(*source.withFiles("t", *others, files), "t"),
            (std::vector<std::string>{"1", "2", "0"}));
  write("0.csv.gz", compressed("t,x\n0,a\n", kCompressors[0]));
  const auto twice = stepErrorOf([&] { openCsv({folder_.path()}); });
  EXPECT_EQ(twice.id(), "KALVEX:datastore:TwoForms");
  EXPECT_THAT(twice.what(), HasSubstr("0.csv' and '" + folder_.path("0.csv.gz")));
}

TEST_F(CompressedCsv, HasTheFaultsOfItsText) {
  const std::string texts[] = {"a,b\n1,2\n\"3\n\",4\n5\n", "a,b\n1,2\nx,3\n", "a,b\n1,\"2\n", "",
                               "a,b\n1,2\n3,\x80\n"};
  const auto failureOf = [](const std::string& path) {
    const auto error = stepErrorOf([&] {
      test::readAll(*openCsv({path}, {{"a", "double"}}), {"a"}, [](const Chunk&) {});
    });
    std::string failure = error.what();
    return error.id() + failure.substr(failure.find(',') + 1);
  };
  for (const std::string& text : texts) {
    std::string expected = failureOf(write("plain.csv", text));
    const std::size_t byte = expected.find(" isn't text");
    if (byte != std::string::npos) {
      expected.insert(byte, " of the uncompressed text");
    }
    for (const Compressor& with : kCompressors) {
      const std::string path = write("a" + std::string(with.ending), compressed(text, with));
      EXPECT_EQ(text.empty() ? expected : failureOf(path), expected);
    }
  }
}

TEST_F(CompressedCsv, ThatIsDamagedIsRefusedByNameOrReadAsFarAsItCantBeNoticed) {
  const std::string text = longText(300);
  std::mt19937 random(static_cast<std::mt19937::result_type>(kv::test::drawSeed()));
  for (const Compressor& with : kCompressors) {
    SCOPED_TRACE(with.ending);
    const std::string whole = compressed(text, with);
    const auto outcomeOf = [&](const std::string& bytes) -> std::string {
      const std::string path = write("damaged", bytes);
      try {
        allTexts(*openCsv({path}, {{"t", "string"}}), "t");
      } catch (const errors::StepError& error) {
        EXPECT_THAT(error.id(), testing::StartsWith("KALVEX:datastore:"));
        EXPECT_THAT(error.what(), HasSubstr(error.id().ends_with("UnknownColumn") ? "t" : path));
        return error.what();
      }
      return "";
    };
    for (int i = 0; i < 40; ++i) {
      const std::size_t size = 10 + random() % (whole.size() - 10);
      EXPECT_THAT(outcomeOf(whole.substr(0, size)), HasSubstr("near byte " + std::to_string(size)));
      std::string flipped = whole;
      flipped[random() % flipped.size()] ^= static_cast<char>(1U << random() % 8);
      outcomeOf(flipped);
      outcomeOf(flipped.substr(0, size));
    }
    EXPECT_THAT(outcomeOf(whole + "bytes that no stream begins with"),
                HasSubstr("stream is damaged"));
    const auto cut = stepErrorOf([&] {
      openCsv({write("cut", whole.substr(0, whole.size() - 1))});
      allTexts(*openCsv({folder_.path("cut")}), "t");
    });
    EXPECT_EQ(cut.id(), "KALVEX:datastore:BadCompression");
    EXPECT_THAT(cut.what(), HasSubstr("its " + std::string(compressionName(with.compression)) +
                                      " stream ends early"));
  }
}

}  // namespace
}  // namespace kv::runtime
