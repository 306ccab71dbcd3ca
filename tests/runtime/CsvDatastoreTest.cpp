#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <set>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "kv/runtime/csv.h"
#include "runtime/readAll.h"
#include "source/SourceFile.h"
#include "source/csv/CsvReader.h"
#include "source/csv/CsvSchema.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using kv::test::TempFolder;
using test::allTexts;
using test::allValues;
using test::readAll;
using test::stepErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::NanSensitiveDoubleEq;
using testing::Pair;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

auto doubles(const std::vector<double>& values) {
  std::vector<testing::Matcher<double>> each;
  for (const double value : values) {
    each.emplace_back(NanSensitiveDoubleEq(value));
  }
  return testing::ElementsAreArray(each);
}

class CsvDatastore : public testing::Test {
 protected:
  std::unique_ptr<Datastore> table(std::string_view text,
                                   const std::vector<TypeOverride>& types = {}) {
    return openCsv({folder_.write("table.csv", text)}, types);
  }

  TempFolder folder_;
};

TEST_F(CsvDatastore, InfersNumbersAndTextsAndFillsMissingFields) {
  const auto source = table(
      "number,text,mixed,nothing,when\n"
      "1,a,1,,2013-01-01\n"
      "NA,,x,NA,2013-01-02\n"
      "NaN,NA,,,2013-01-03\n"
      "null,\"\",2,null,\n"
      "-2.5e3,\"a \"\"b\"\"\",3,,2013-01-05\n");

  const Schema expected{{"number", ElementType::Double},
                        {"text", ElementType::String},
                        {"mixed", ElementType::String},
                        {"nothing", ElementType::Double, true},
                        {"when", ElementType::DateTime}};
  EXPECT_EQ(source->schema(), expected);
  EXPECT_THAT(allValues<double>(*source, "number"), doubles({1, kNaN, kNaN, kNaN, -2500}));
  EXPECT_THAT(allValues<double>(*source, "nothing"), doubles({kNaN, kNaN, kNaN, kNaN, kNaN}));
  EXPECT_THAT(allTexts(*source, "text"),
              ElementsAre("a", "<missing>", "NA", "<missing>", "a \"b\""));
  EXPECT_THAT(allTexts(*source, "mixed"), ElementsAre("1", "x", "<missing>", "2", "3"));
}

TEST_F(CsvDatastore, ReadsEveryFormThatAFileMayHave) {
  const std::pair<const char*, std::string_view> forms[] = {
      {"LF", "x,t\n1,a\n2,b\n"},
      {"CRLF", "x,t\r\n1,a\r\n2,b\r\n"},
      {"CR", "x,t\r1,a\r2,b\r"},
      {"no end of line at the end", "x,t\n1,a\n2,b"},
      {"byte order mark", "\xEF\xBB\xBFx,t\n1,a\n2,b\n"},
      {"empty lines", "\n\nx,t\n\n1,a\n\r\n2,b\n\n\n"},
      {"quotes", "\"x\",\"t\"\n\"1\",\"a\"\n\"2\",\"b\"\n"},
  };
  for (const auto& [form, text] : forms) {
    SCOPED_TRACE(form);
    const auto source = table(text);
    EXPECT_THAT(allValues<double>(*source, "x"), doubles({1, 2}));
    EXPECT_THAT(allTexts(*source, "t"), ElementsAre("a", "b"));
  }
}

TEST_F(CsvDatastore, KeepsLineEndsCommasAndCharactersOfAnyScriptInQuotes) {
  const auto source = table("größe,ort\n1,\"a\nb,\r\nc\"\n2,東京\n");
  EXPECT_THAT(allValues<double>(*source, "größe"), doubles({1, 2}));
  EXPECT_THAT(allTexts(*source, "ort"), ElementsAre("a\nb,\r\nc", "東京"));
}

TEST_F(CsvDatastore, UsesTheTypesThatItsUserSet) {
  const char* text = "a,b,c,d,e=f\n1,-3,true,4.5,7\n2,4,0,,8\n";
  const auto source = table(
      text, {{"a", "int64"}, {"b", "int8"}, {"c", "logical"}, {"d", "single"}, {"e=f", "string"}});

  EXPECT_THAT(allValues<std::int64_t>(*source, "a"), ElementsAre(1, 2));
  EXPECT_THAT(allValues<std::int8_t>(*source, "b"), ElementsAre(-3, 4));
  EXPECT_THAT(allValues<std::uint8_t>(*source, "c"), ElementsAre(1, 0));
  EXPECT_EQ(allValues<float>(*source, "d")[0], 4.5F);
  EXPECT_TRUE(std::isnan(allValues<float>(*source, "d")[1]));
  EXPECT_THAT(allTexts(*source, "e=f"), ElementsAre("7", "8"));
  for (const ElementType type : allElementTypes()) {
    EXPECT_EQ(table("a\n1\n", {{"a", std::string(elementTypeName(type))}})->schema()[0].type, type);
  }
  EXPECT_EQ(parseTypeOverride("e=f=string").column, "e=f");
}

TEST_F(CsvDatastore, KeepsWholeNumbersExactIfTheTypeFits) {
  const auto exact = table("a\n9007199254740993\n-9223372036854775808\n", {{"a", "int64"}});
  EXPECT_THAT(allValues<std::int64_t>(*exact, "a"),
              ElementsAre(9007199254740993, std::numeric_limits<std::int64_t>::min()));
  const auto rounded = table("a\n9007199254740992\n1e300\n-9007199254740993.5\n inf\n");
  EXPECT_THAT(allValues<double>(*rounded, "a"),
              doubles({9007199254740992.0, 1e300, -9007199254740994.0, HUGE_VAL}));
}

TEST_F(CsvDatastore, GivesTheRequestedColumnsInTheRequestedOrder) {
  const auto source = table("a,b,c\n1,2,3\n");
  readAll(*source, {"c", "a", "c"}, [](const Chunk& chunk) {
    EXPECT_EQ(chunk.columns[0].values<double>()[0], 3);
    EXPECT_EQ(chunk.columns[1].values<double>()[0], 1);
    EXPECT_EQ(chunk.columns[2].values<double>()[0], 3);
  });
  std::int64_t rows = 0;
  readAll(*source, {}, [&rows](const Chunk& chunk) { rows += chunk.rows(); });
  EXPECT_EQ(rows, 1);
}

TEST_F(CsvDatastore, CutsLongFilesIntoTheSameChunksForAnyColumns) {
  std::string text = "id,name\n";
  double sum = 0;
  for (int row = 0; row < 200000; ++row) {
    text += std::to_string(row) + ",\"n" + std::to_string(row % 7) + (row % 5 ? "\"\n" : "\n\"\n");
    sum += row;
  }
  const auto source = table(text);

  std::vector<std::int64_t> cutsOfAll;
  double found = 0;
  readAll(*source, {"id", "name"}, [&](const Chunk& chunk) {
    cutsOfAll.push_back(chunk.rows());
    for (const double id : chunk.columns[0].values<double>()) {
      found += id;
    }
    EXPECT_LE(chunk.columns[0].byteSize(), kChunkBytesPerColumn);
  });
  std::vector<std::int64_t> cutsOfNone;
  readAll(*source, {}, [&](const Chunk& chunk) { cutsOfNone.push_back(chunk.rows()); });
  EXPECT_EQ(found, sum);
  EXPECT_GT(cutsOfAll.size(), 6U);
  EXPECT_EQ(cutsOfAll, cutsOfNone);
}

TEST_F(CsvDatastore, ReadsRecordsLongerThanABlock) {
  const std::string longText(3'000'000, 'x');
  const auto source = table("a,b\n1,\"" + longText + "\"\n2,y\n");
  EXPECT_THAT(allTexts(*source, "b"), ElementsAre(longText, "y"));
}

TEST_F(CsvDatastore, GivesNoRowsForAHeaderAlone) {
  for (const char* text : {"a,b\n", "a,b", "a,b\r\n\r\n"}) {
    const auto source = table(text, {{"b", "string"}});
    EXPECT_EQ(source->schema()[0].type, ElementType::Double);
    EXPECT_THAT(allValues<double>(*source, "a"), IsEmpty());
    const Chunk preview = source->preview(10);
    EXPECT_EQ(preview.rows(), 0);
    EXPECT_EQ(preview.columns[0].values<double>().size(), 0U);
    EXPECT_EQ(preview.columns[1].byteSize(), 0);
  }
}

TEST_F(CsvDatastore, MakesOneTableOfAFolderAPatternOrAList) {
  folder_.write("parts/b.csv", "x\n2\n");
  folder_.write("parts/a.CSV", "x\n1\n");
  folder_.write("parts/c.txt", "x\n3\n");
  folder_.write("parts/.hidden.csv", "y\n9\n");
  folder_.write("parts/deep/d.csv", "y\n9\n");
  folder_.write("[odd]*.csv", "x\n4\n");
  const auto path = [this](const char* name) { return folder_.path(name); };

  EXPECT_THAT(allValues<double>(*openCsv({path("parts")}), "x"), doubles({1, 2}));
  EXPECT_THAT(allValues<double>(*openCsv({path("parts/*.???")}), "x"), doubles({1, 2, 3}));
  EXPECT_THAT(allValues<double>(*openCsv({path("[odd]*.csv")}), "x"), doubles({4}));
  const auto list = openCsv({path("parts/c.txt"), path("parts")});
  EXPECT_THAT(allValues<double>(*list, "x"), doubles({3, 1, 2}));
  EXPECT_EQ(list->numPartitions(), 3);
  EXPECT_THAT(list->displayName(), testing::EndsWith("(3 files)"));
}

TEST_F(CsvDatastore, PreviewsTheFirstRowsOfTheFirstFileThatHasSome) {
  folder_.write("a.csv", "x,t\n");
  folder_.write("b.csv", "x,t\n1,\n2,b\n3,c\n");
  const Chunk preview = openCsv({folder_.path()}, {{"t", "string"}})->preview(2);
  EXPECT_EQ(preview.rows(), 2);
  EXPECT_THAT(*preview.names, ElementsAre("x", "t"));
  EXPECT_TRUE(preview.columns[1].isNull(0));
  EXPECT_EQ(preview.columns[1].text(1), "b");
}

TEST_F(CsvDatastore, InfersATypeFromTheFirstBlockOrFileThatHasAValue) {
  const std::string noValues = [] {
    std::string rows = "x,t\n";
    for (int row = 0; row < 40'000; ++row) {
      rows += "1,\n";
    }
    return rows;
  }();
  constexpr std::int64_t kBlock = 32 * 1024 * 3, kFile = 40'000 * 3 + 1;  // bytes of records
  struct Case {
    std::vector<std::string> files;
    ElementType type;
    bool isUndecided;
    std::int64_t inferenceBytes = kInferenceBytes;
  };
  const Case cases[] = {
      {{noValues + "1,a\n"}, ElementType::String, false},
      {{noValues + "1,2\n1,a\n"}, ElementType::String, false},
      {{noValues + "1,2\n"}, ElementType::Double, false},
      {{"x,t\n", "x,t\n1,\n", "x,t\n1,a\n"}, ElementType::String, false},
      {{"x,t\n1,\n", "x,t\n1,2\n", "x,t\n1,a\n"}, ElementType::Double, false},
      {{"x,t\n1,\n", "x,t\n1,NA\n"}, ElementType::Double, true},
      {{noValues + "1,a\n"}, ElementType::String, false, kBlock + 1},
      {{noValues + "1,a\n"}, ElementType::Double, true, kBlock},
      {{noValues, "x,t\n1,2\n"}, ElementType::Double, false, kFile + 1},
      {{noValues, "x,t\n1,a\n"}, ElementType::String, false, kFile + 1},
      {{noValues, "x,t\n1,a\n"}, ElementType::Double, true, kFile},
  };
  std::vector<CsvFile> files;
  Schema schema;
  for (const Case& each : cases) {
    files.clear();
    for (const std::string& text : each.files) {
      const std::string name = std::to_string(files.size()) + ".csv";
      files.push_back({SourceFile::stat(folder_.write(name, text)), usualFormat()});
    }
    schema = readCsvSchema(files, {}, each.inferenceBytes);
    EXPECT_EQ(schema[1], (ColumnInfo{"t", each.type, each.isUndecided})) << &each - cases;
  }
  const CancellationToken never;
  const errors::StepError error = stepErrorOf([&] {
    CsvReader(files.back(), {0, files.back().file.bytes}, 1, schema, {"t"}, never).next();
  });
  EXPECT_EQ(error.arguments().at(6), "string");
  EXPECT_THAT(error.what(), HasSubstr("because its first values come after those"));
  const auto whole = openCsv({folder_.path("0.csv"), folder_.path("1.csv")});
  EXPECT_EQ(allTexts(*whole, "t").back(), "a");
}

TEST_F(CsvDatastore, GivesEveryColumnAUniqueName) {
  const std::pair<const char*, std::vector<std::string>> headers[] = {
      {"a,b,a,a", {"a", "b", "a.2", "a.3"}},
      {"a,a,a.2", {"a", "a.3", "a.2"}},
      {"a.2,a.2,a,a", {"a.2", "a.2.2", "a", "a.3"}},
      {",b,\"\"", {"column 1", "b", "column 3"}},
      {"column 2,,column 2", {"column 2", "column 2.2", "column 2.3"}},
  };
  for (const auto& [header, names] : headers) {
    const std::string row = std::string("1,2,3,4").substr(0, 2 * names.size() - 1);
    const auto source = table(header + ("\n" + row));
    EXPECT_EQ(test::namesOf(*source), names);
    EXPECT_THAT(allValues<double>(*source, names[1]), doubles({2}));
  }
}

TEST_F(CsvDatastore, IsIdentifiedByEverythingThatDeterminesItsRowsAndTypes) {
  const auto inferred = table("x,t\n1,a\n");
  const std::string path = folder_.path("table.csv");
  EXPECT_EQ(openCsv({path}, {{"x", "double"}})->fingerprint(), inferred->fingerprint());
  const std::unique_ptr<Datastore> others[] = {
      openCsv({path}, {{"x", "int64"}}),
      openCsv({path}, {{"x", "string"}}),
      openCsv({path, path}),
      openCsv({folder_.write("other.csv", "x,t\n1,a\n")}),
      table("x,t\n1,a\n2,b\n"),
  };
  std::set<std::string> prints{inferred->fingerprint()};
  for (const auto& other : others) {
    prints.insert(other->fingerprint());
  }
  EXPECT_EQ(prints.size(), 6U);
}

TEST_F(CsvDatastore, NoticesAFileThatChangesWhileItIsRead) {
  namespace fs = std::filesystem;
  std::string text = "x\n";
  for (int row = 0; row < 1'500'000; ++row) {
    text += "1\n";  // three blocks
  }
  const std::string path = folder_.path("parts/table.csv");
  const auto rewrite = [&](const std::string& other) {
    std::ofstream(path, std::ios::in | std::ios::out | std::ios::binary) << other;
  };
  const auto keepingTime = [&](const std::function<void()>& change) {
    const auto time = fs::last_write_time(path);
    change();
    fs::last_write_time(path, time);
  };
  std::string twos = text;
  std::ranges::replace(twos, '1', '2');
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"shrinks", [&] { fs::resize_file(path, text.size() - 2); }},
      {"grows", [&] { std::ofstream(path, std::ios::app) << "1\n"; }},
      {"is overwritten", [&] { rewrite(twos); }},
      {"is overwritten and given its old time", [&] { keepingTime([&] { rewrite(twos); }); }},
      {"is replaced by another",
       [&] { keepingTime([&] { fs::rename(folder_.write("new.csv", twos), path); }); }},
      {"is in a folder that is replaced",
       [&] {
         fs::rename(folder_.path("parts"), folder_.path("old"));
         folder_.write("parts/table.csv", twos);
         fs::last_write_time(path, fs::last_write_time(folder_.path("old/table.csv")));
       }},
      {"is removed", [&] { fs::remove(path); }},
      {"gets other rights", [&] { fs::permissions(path, fs::perms::owner_all); }},
  };
  const CancellationToken never;
  for (const auto& [what, change] : changes) {
    const auto source = openCsv({folder_.write("parts/table.csv", text)});
    const auto reader = source->openPartition(0, {"x"}, never);
    ASSERT_TRUE(reader->next());
    change();
    const errors::StepError error = stepErrorOf([&] {
      while (const auto chunk = reader->next()) {
        EXPECT_EQ(std::ranges::count(chunk->columns[0].values<double>(), 1.0), chunk->rows())
            << "new bytes of a file that " << what;
      }
    });
    EXPECT_EQ(error.id(), "KALVEX:datastore:SourceChanged") << what;
    EXPECT_THAT(error.what(),
                HasSubstr("changed while it was read (its contents, rights or links)"))
        << what;
  }
  const SourceFile file = SourceFile::stat(folder_.write("late.csv", "x\n"));
  const auto written = std::chrono::file_clock::to_sys(fs::last_write_time(file.path));
  EXPECT_LT(std::chrono::nanoseconds(written.time_since_epoch()), SourceFile::timeOfWrites())
      << "a write in the same tick of the clock would go unnoticed";
}

TEST_F(CsvDatastore, RefusesAFileThatIsWrittenWithoutPause) {
  const std::string path = folder_.write("busy.csv", "x\n");
  const std::chrono::nanoseconds written = std::chrono::hours(1);
  std::filesystem::last_write_time(
      path,
      std::chrono::file_clock::from_sys(std::chrono::sys_time<std::chrono::nanoseconds>(written)));
  const SourceFile::Clock sameTick = [] { return std::chrono::nanoseconds(std::chrono::hours(1)); };
  const errors::StepError error = stepErrorOf([&] { SourceFile::stat(path, sameTick); });
  EXPECT_EQ(error.id(), "KALVEX:datastore:FileNotReadable");
  EXPECT_THAT(error.what(), HasSubstr("it is being written"));
}

TEST_F(CsvDatastore, RefusesFilesThatChangedSinceTheyWereOpened) {
  const auto rewrite = [this](std::string_view text) { folder_.write("table.csv", text); };
  const auto source = table("x\n1\n");
  const std::unique_ptr<Datastore> copy = source->copy();
  EXPECT_EQ(copy->fingerprint(), source->fingerprint());
  rewrite("x\n1\n2\n");

  for (const auto* opened : {&source, &copy}) {
    const errors::StepError error = stepErrorOf([&] { allValues<double>(**opened, "x"); });
    EXPECT_EQ(error.id(), "KALVEX:datastore:SourceChanged");
    EXPECT_THAT(error.arguments(), ElementsAre(folder_.path("table.csv"), "since it was opened",
                                               "open it again to read it"));
  }
  std::filesystem::remove(folder_.path("table.csv"));
  EXPECT_EQ(stepErrorOf([&] { source->preview(1); }).id(), "KALVEX:datastore:SourceChanged");
}

TEST_F(CsvDatastore, ReadsTheSameFileFromAnotherWorkingDirectory) {
  folder_.write("table.csv", "x\n1\n");
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  const auto source = openCsv({"table.csv"});
  std::filesystem::current_path(before);
  EXPECT_THAT(allValues<double>(*source, "x"), doubles({1}));
  EXPECT_EQ(source->displayName(), "table.csv");
}

TEST_F(CsvDatastore, StopsWithinAChunkWhenCancelled) {
  std::string text = "x\n";
  for (int row = 0; row < 100000; ++row) {
    text += "1\n";
  }
  const auto source = table(text);
  CancellationToken token;
  const auto reader = source->openPartition(0, {"x"}, token);
  EXPECT_TRUE(reader->next());
  token.cancel();
  EXPECT_THROW(reader->next(), Cancelled);
}

TEST_F(CsvDatastore, ReadsTheFlightsAsOtherToolsDo) {
  const char* data = std::getenv("KV_DATA");
  const std::string path = std::string(data ? data : "data") + "/flights.csv";
  if (!std::filesystem::exists(path)) {
    GTEST_SKIP() << "no " << path << ": 'make setup' fetches it";
  }
  std::int64_t rows = 0;
  std::int64_t count = 0;
  double delays = 0;
  double distances = 0;
  readAll(*openCsv({path}), {"distance", "dep_delay"}, [&](const Chunk& chunk) {
    rows += chunk.rows();
    for (const double distance : chunk.columns[0].values<double>()) {
      distances += distance;
    }
    for (const double delay : chunk.columns[1].values<double>()) {
      count += !std::isnan(delay);
      delays += std::isnan(delay) ? 0 : delay;
    }
  });
  EXPECT_EQ(rows, 336776);
  EXPECT_EQ(count, 328521);
  EXPECT_EQ(distances, 350217607);
  EXPECT_EQ(delays / static_cast<double>(count), 12.639070257304708);
}

}  // namespace
}  // namespace kv::runtime
