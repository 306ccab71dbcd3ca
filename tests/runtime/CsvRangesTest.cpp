#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "runtime/readAll.h"
#include "source/csv/CsvDatastore.h"
#include "source/registry/openSource.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using namespace std::string_literals;
using kv::test::TempFolder;
using test::namesOf;
using test::readAll;

/// What reading a source gives: its rows, and the error that ends it.
struct Outcome {
  std::vector<std::string> rows;
  std::string error;

  bool operator==(const Outcome&) const = default;
};

Outcome outcomeOf(const Datastore& source) {
  Outcome outcome;
  try {
    readAll(source, namesOf(source), [&](const Chunk& chunk) {
      for (std::int64_t row = 0; row < chunk.rows(); ++row) {
        std::string text;
        for (const Column& column : chunk.columns) {
          text += column.isNull(row) ? "<missing>"
                  : column.type() == ElementType::String
                      ? "<" + std::string(column.text(row)) + ">"
                      : std::to_string(column.values<double>()[static_cast<std::size_t>(row)]);
        }
        outcome.rows.push_back(text);
      }
    });
  } catch (const errors::StepError& error) {
    outcome.error = error.id();
    // The type that would fit depends on the rows in the same block.
    const std::size_t compared = error.arguments().size() == 8 ? 6 : error.arguments().size();
    for (std::size_t i = 0; i < compared; ++i) {
      outcome.error += "|" + error.arguments()[i];
    }
  }
  return outcome;
}

class CsvRanges : public testing::Test {
 protected:
  std::string write(const std::string& text) { return folder_.writeAtRest("table.csv", text); }

  void expectTheSameForAnyCut(const std::string& text, const std::vector<TypeOverride>& types) {
    const std::string path = write(text);
    const CsvDatastore whole(std::vector{path}, types);
    ASSERT_EQ(whole.numPartitions(), 1);
    const Outcome expected = outcomeOf(whole);
    for (std::int64_t bytes = 1; bytes <= std::ssize(text); ++bytes) {
      const CsvDatastore cut(std::vector{path}, types, {}, bytes);
      EXPECT_EQ(cut.numPartitions(), (std::ssize(text) + bytes - 1) / bytes);
      const Outcome outcome = outcomeOf(cut);
      EXPECT_EQ(outcome.rows, expected.rows) << "in ranges of " << bytes << ":\n" << text;
      EXPECT_EQ(outcome.error, expected.error) << "in ranges of " << bytes << ":\n" << text;
    }
  }

  TempFolder folder_;
};

const std::vector<TypeOverride> kTexts{{"a", "string"}, {"b", "string"}};

TEST_F(CsvRanges, GiveTheSameRowsAndErrorsWhereverAFileIsCut) {
  const std::string texts[] = {
      "a,b\n1,2\n3,4\n5,6\n",
      "a,b\r\n1,2\r\n3,4\r\n5,6",
      "a,b\r1,2\r3,4\r",
      "\n\r\n\na,b\n\n\n1,2\n\r\n\n3,4\n\n",
      "\xEF\xBB\xBF\"a\",b\n\"1\n\n2\",3\n",
      "\xEF\xBB\xBF"
      "a,b\n1,2",
      "a,b\n\"x\ny\",\"z,\n\"\n\"\"\"\",\"\"\n\"\n\n\",1\n",
      "a,b\n5\" pipe,6\" pipe\n\"5\"\" pipe\",x\n7\"\n,8\n",
      "a,b\n\"x\"y\"z\n1\",2\n\"x\"\"\"y\"\n,2\n",
      "a,b\n\"q\"\n,\n\"\"\"\n\"\"\n\"\"\",\"\n\"\n",
      "\"a\",\"b\"\n\"1\",\"2\"\n\"3\",\"4\"",
      "\"a\n\",b\n1,2\n",
      "a,b",
      "a,b\n",
      "a,b\n1,2\n3\n4,5\n",
      "a,b\n1,2\n\n\"3\n\",4,5\n6,7\n",
      "a,b\n1,2\n3,\"4\n5,6\n7,8\n",
      "a,b\n1,2\n\"3\"\",4\n",
      "a,b\n1,2\n3,\x80\n4\n",
      "a,b\n1,2\n3\n4,\x80\n",
      "a,b\n1,größe\n東京,2\n\"東\n京\",\xE6\x9D\n",
      "a,b\n1,2\n3,\0\n"s,
  };
  for (const std::string& text : texts) {
    const bool hasOtherNames = text.find("\"a\n\"") != std::string::npos;
    expectTheSameForAnyCut(text, hasOtherNames ? std::vector<TypeOverride>{} : kTexts);
  }
}

TEST_F(CsvRanges, ReportTheFirstFieldThatDoesntFit) {
  const std::string head = "a,b\n1,\"2\n\"\n\n";
  for (const char* const rest :
       {"x,2\n1,y\n", "1,2\n1,y\nx,2\n", "1,2\n1,99999999999999999999\n3\n", "1,2\n3\n1,y\n",
        "1,\n2,NA\n,\n", "1,2\n3,4\n\"5\",\"x\"\n"}) {
    expectTheSameForAnyCut(head + rest, {{"a", "double"}, {"b", "double"}});
  }
}

TEST_F(CsvRanges, GiveTheSameForRandomBytes) {
  std::mt19937 random(static_cast<std::mt19937::result_type>(kv::test::drawSeed()));
  for (int file = 0; file < 16; ++file) {
    const bool isOneColumn = file % 2 == 0;
    const std::string letters = isOneColumn ? "\"\"\"\r\n\nxy" : "\"\"\r\n,,,x";
    std::string text = isOneColumn ? "a\n" : "a,b\n";
    for (int i = 0; i < 40; ++i) {
      text += letters[random() % letters.size()];
    }
    std::vector<TypeOverride> types = kTexts;
    types.resize(isOneColumn ? 1 : 2);
    expectTheSameForAnyCut(text, types);
  }
}

TEST_F(CsvRanges, AreFoundByManyThreadsAtOnce) {
  std::string text = "a,b\n";
  for (int row = 0; row < 20'000; ++row) {
    text += row % 7 == 0 ? "\"" + std::to_string(row) + "\n\",5\" pipe\n" : "1,2\n";
  }
  const std::string path = write(text);
  const std::vector<std::string> expected = outcomeOf(CsvDatastore(std::vector{path}, kTexts)).rows;
  ASSERT_EQ(expected.size(), 20'000U);
  const CsvDatastore cut(std::vector{path}, kTexts, {}, 1'000);
  std::vector<std::vector<std::string>> found(8);
  {
    std::vector<std::jthread> threads;
    for (auto& rows : found) {
      threads.emplace_back([&] { rows = outcomeOf(*cut.copy()).rows; });
    }
  }
  for (const auto& rows : found) {
    EXPECT_EQ(rows, expected);
  }
}

TEST_F(CsvRanges, ArePartOfTheDescriptionAndTheIdentity) {
  const std::string path = write("a,b\n1,2\n3,4\n");
  const CsvDatastore whole(std::vector{path}, kTexts);
  const CsvDatastore cut(std::vector{path}, kTexts, {}, 5);
  EXPECT_NE(cut.fingerprint(), whole.fingerprint());
  const auto opened = openSource(cut.describe());
  EXPECT_EQ(opened->numPartitions(), 3);
  EXPECT_EQ(opened->fingerprint(), cut.fingerprint());
  EXPECT_EQ(outcomeOf(*opened), outcomeOf(whole));
}

}  // namespace
}  // namespace kv::runtime
