#include <arrow/type.h>
#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <numeric>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "column/elementTypes.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/csv.h"
#include "kv/runtime/parquet.h"
#include "runtime/fileBytes.h"
#include "runtime/readAll.h"
#include "runtime/typedColumns.h"
#include "source/BlockDatastore.h"
#include "source/parquet/parquetBlocks.h"
#include "source/registry/openSource.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using kv::test::TempFolder;
using test::allNumbers;
using test::allTexts;
using test::allValues;
using test::arrayOf;
using test::Columns;
using test::doubles;
using test::parquetBytes;
using test::readAll;
using test::stepErrorOf;
using test::texts;
using test::TypedColumn;
using test::typedColumns;
using test::WriteOptions;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class Parquet : public testing::Test {
 protected:
  std::string write(const std::string& name, const Columns& columns,
                    const WriteOptions& options = {}) {
    return folder_.write(name, parquetBytes(columns, options));
  }

  TempFolder folder_;
};

TEST_F(Parquet, GivesNumbersOfEveryTypeThatCanBeRead) {
  const std::vector<TypedColumn> typed = typedColumns();
  Columns columns;
  for (std::size_t i = 0; i < typed.size(); ++i) {
    columns.emplace_back("c" + std::to_string(i), arrayOf(typed[i].type, typed[i].json));
  }
  for (const std::int64_t groupRows : {1, 3, 100}) {
    const auto source = openParquet({write("all.parquet", columns, {groupRows, groupRows > 1})});
    for (std::size_t i = 0; i < typed.size(); ++i) {
      const ColumnInfo& info = source->schema()[i];
      EXPECT_EQ(info, (ColumnInfo{columns[i].first, typed[i].read, false, isWhole(typed[i].read),
                                  typed[i].inParquet}));
      EXPECT_THAT(allNumbers(*source, info.name),
                  testing::Pointwise(testing::NanSensitiveDoubleEq(), typed[i].values))
          << typed[i].type->ToString();
    }
  }
  const auto full = openParquet({write("full.parquet", {{"x", arrayOf(arrow::int8(), "[1]")}})});
  EXPECT_FALSE(full->schema()[0].isNullable) << "the statistics say that there are no nulls";
}

TEST_F(Parquet, GivesTextsOfEveryEncoding) {
  const char* const words = R"(["", "a\nb", null, "東京"])";
  Columns columns;
  for (const auto& type : test::textTypes()) {
    columns.emplace_back("t", arrayOf(type, words));
  }
  for (const std::int64_t groupRows : {1, 3, 100}) {
    const auto source = openParquet({write("t.parquet", columns, {.groupRows = groupRows})});
    for (const char* name : {"t", "t.2", "t.3", "t.4", "t.5"}) {
      EXPECT_THAT(allTexts(*source, name), ElementsAre("", "a\nb", "<missing>", "東京")) << name;
    }
  }
}

TEST_F(Parquet, CutsRowGroupsIntoPartitionsByTheirSizeAlone) {
  std::vector<double> values(100'000);
  std::vector<std::string> names;
  for (std::size_t row = 0; row < values.size(); ++row) {
    values[row] = static_cast<double>(row);
    names.push_back("name " + std::to_string(row % 1000));
  }
  const Columns columns{{"x", doubles(values)}, {"t", texts(names)}};
  const std::string path = write("t.parquet", columns, {.groupRows = 7'000});
  struct Case {
    std::int64_t bytes;
    std::int64_t partitions;
  };
  const BlockDatastore whole(kParquetBlocks, std::vector{path});
  EXPECT_EQ(whole.numPartitions(), 1);
  for (const Case& each : {Case{1, 15}, Case{200'000, 8}, Case{kBlockPartitionBytes, 1}}) {
    const BlockDatastore source(kParquetBlocks, std::vector{path}, {}, each.bytes);
    EXPECT_EQ(source.numPartitions(), each.partitions);
    EXPECT_EQ(allValues<double>(source, "x"), values);
    EXPECT_EQ(allTexts(source, "t"), names);
    EXPECT_EQ(source.fingerprint() == whole.fingerprint(), each.partitions == 1);
    std::int64_t rows = 0;
    std::int64_t known = 0;
    readAll(source, {}, [&](const Chunk& chunk) { rows += chunk.rows(); });
    for (std::int64_t partition = 0; partition < source.numPartitions(); ++partition) {
      known += source.knownRows(partition).value();
    }
    EXPECT_EQ(rows, 100'000);
    EXPECT_EQ(known, rows);
  }
  const auto several = openParquet({path, write("u.parquet", columns), path});
  EXPECT_EQ(several->numPartitions(), 3);
  EXPECT_EQ(allValues<double>(*several, "x").size(), 300'000U);
}

TEST_F(Parquet, CutsChunksOfWideRowsShorterWhicheverColumnsAreRead) {
  std::vector<std::string> wide;
  for (int row = 0; row < 3'000; ++row) {
    wide.push_back(std::to_string(row) + std::string(10'000, 'w'));
  }
  const auto source = openParquet(
      {write("w.parquet", {{"x", doubles(std::vector<double>(3'000, 1))}, {"t", texts(wide)}})});
  std::vector<std::int64_t> rows;
  readAll(*source, {"x"}, [&](const Chunk& chunk) { rows.push_back(chunk.rows()); });
  EXPECT_EQ(rows, (std::vector<std::int64_t>{256, 256, 256, 256, 256, 256, 256, 256, 256, 256, 256,
                                             184}));
  EXPECT_EQ(allTexts(*source, "t"), wide);
}

TEST_F(Parquet, SkipsRowGroupsAndCutsTheRestAsIfAllWereRead) {
  std::vector<double> values(100'000);
  std::iota(values.begin(), values.end(), 0);
  const auto source =
      openParquet({write("t.parquet", {{"x", doubles(values)}}, {.groupRows = 7'000})});
  const Column bound(ElementType::Double, 1,
                     arrow::Buffer::FromVector(std::vector<double>{50'000}));
  const CancellationToken never;
  const auto reader =
      source->openPartitionWhere(0, {"x"}, {{"x", findElementFunction("ge"), bound}}, never);
  std::vector<std::pair<std::int64_t, std::int64_t>> chunks;
  while (const auto chunk = reader->next()) {
    chunks.emplace_back(chunk->ordinals.at(0), chunk->rows());
    EXPECT_EQ(chunk->columns[0].values<double>()[0], static_cast<double>(chunks.back().first));
  }
  EXPECT_THAT(chunks, ElementsAre(Pair(49'000, 16'536), Pair(65'536, 32'768), Pair(98'304, 1'696)));
  EXPECT_EQ(reader->skippedRows(), 49'000);
}

TEST_F(Parquet, HasAPartitionWithoutRowsForAFileWithoutRows) {
  const auto source = openParquet({write("0.parquet", {{"x", doubles({})}})});
  EXPECT_EQ(source->numPartitions(), 1);
  EXPECT_EQ(allValues<double>(*source, "x").size(), 0U);
  EXPECT_EQ(source->preview(3).columns[0].type(), ElementType::Double);
  const auto more =
      openParquet({folder_.path("0.parquet"), write("1.parquet", {{"x", doubles({1, 2, 3})}})});
  EXPECT_EQ(more->preview(2).rows(), 2);
}

TEST_F(Parquet, RefusesColumnsOfOtherTypesByNameAndReadsTheRest) {
  const auto hour = arrow::time64(arrow::TimeUnit::MICRO);
  const auto source =
      openParquet({write("n.parquet", {{"list", arrayOf(arrow::list(arrow::float64()), "[[1, 2]]")},
                                       {"hour", arrayOf(hour, "[5]")},
                                       {"bytes", arrayOf(arrow::binary(), R"(["b"])")},
                                       {"x", doubles({3})}})});
  EXPECT_EQ(allValues<double>(*source, "x"), std::vector<double>{3});
  EXPECT_EQ(source->preview(1).columns.size(), 1U);
  const std::pair<const char*, const char*> refused[] = {
      {"list", "list<"}, {"hour", "time64[us]"}, {"bytes", "binary"}};
  const CancellationToken never;
  for (const auto& [name, type] : refused) {
    const auto error = stepErrorOf([&] { source->openPartition(0, {"x", name}, never); });
    EXPECT_EQ(error.id(), "KALVEX:datastore:UnsupportedColumn");
    EXPECT_THAT(error.arguments(), ElementsAre(name, StartsWith(type)));
  }
}

TEST_F(Parquet, RefusesFilesThatFormNoTable) {
  const std::string x = write("x.parquet", {{"x", doubles({1})}});
  const std::string y = write("y.parquet", {{"y", doubles({1})}});
  const std::string text = write("text.parquet", {{"x", texts({"a"})}});
  const std::string csv = folder_.write("x.csv", "x\n1\n");
  const std::string bytes = parquetBytes({{"x", doubles({1})}});
  const std::string unnamed = folder_.write("unnamed", bytes);
  const std::string lie = folder_.write("lie.parquet", "x\n1\n");
  const std::string half = folder_.write("half.parquet", bytes.substr(0, bytes.size() / 2));
  const std::string tiny = folder_.write("tiny.parquet", "PAR1");
  std::string longFooter = bytes;
  std::memset(longFooter.data() + longFooter.size() - 8, 0x7F, 4);
  const std::string endless = folder_.write("endless.parquet", longFooter);
  const std::string empty = folder_.write("empty.parquet", "");
  struct Case {
    std::vector<std::string> paths;
    std::vector<TypeOverride> types;
    std::string id;
    std::vector<std::string> texts;
  };
  const Case cases[] = {
      {{x, y}, {}, "DifferentColumns", {y, "column 1 is 'y', not 'x'"}},
      {{x, text}, {}, "DifferentTypes", {text, "'x' has the type string", "double in '" + x}},
      {{x, csv}, {}, "MixedFormats", {x + "' is Parquet", csv + "' is CSV"}},
      {{csv, unnamed}, {}, "MixedFormats", {unnamed + "' is Parquet"}},
      {{folder_.path()}, {}, "MixedFormats", {csv}},
      {{x}, {{"x", "int64"}}, "FixedType", {"int64", "it has the type double"}},
      {{x}, {{"z", "int64"}}, "UnknownColumn", {"'z'"}},
      {{lie}, {}, "BadParquet", {lie, "begins with"}},
      {{empty}, {}, "BadParquet", {empty, "begins with"}},
      {{half}, {}, "BadParquet", {half, "copied completely"}},
      {{tiny}, {}, "BadParquet", {tiny, "copied completely"}},
      {{endless}, {}, "BadParquet", {endless, "2139062143 bytes"}},
  };
  for (const Case& each : cases) {
    const auto error = stepErrorOf([&] { openFiles({each.paths, each.types}); });
    EXPECT_EQ(error.id(), "KALVEX:datastore:" + each.id);
    for (const std::string& part : each.texts) {
      EXPECT_THAT(error.what(), HasSubstr(part));
    }
  }
  const auto fixed = stepErrorOf([&] { openFiles({{x}, {}, {.hasHeader = false}}); });
  EXPECT_EQ(fixed.id(), "KALVEX:datastore:FixedFormat");
  EXPECT_THAT(fixed.what(), HasSubstr("is Parquet; the lack of a header can be set for CSV"));
  EXPECT_EQ(openFiles({{unnamed}, {{"x", "double"}}})->schema()[0].name, "x");
  EXPECT_EQ(stepErrorOf([&] { openCsv({x}); }).id(), "KALVEX:datastore:OtherFormat");
}

/// Whatever byte is wrong: the same values, or an error of ours that names the file.
TEST_F(Parquet, NeverTrustsAByte) {
  const Columns columns{{"x", arrayOf(arrow::int64(), "[1, 2, 3, null]")},
                        {"t", arrayOf(arrow::utf8(), R"(["one", "two", null, "four"])")}};
  const std::string good = parquetBytes(columns, {.groupRows = 3});
  const auto outcomeOf = [&](const std::string& bytes) -> std::string {
    const std::string path = folder_.writeAtRest("bad.parquet", bytes);
    try {
      const BlockDatastore source(kParquetBlocks, std::vector{path}, {}, 1);
      std::string values;
      for (const double x : allNumbers(source, "x")) {
        values += std::to_string(x) + ", ";
      }
      for (const std::string& text : allTexts(source, "t")) {
        values += text + ", ";
      }
      return values;
    } catch (const errors::StepError& error) {
      EXPECT_THAT(error.id(), StartsWith("KALVEX:datastore:"));
      return error.id().substr(error.id().rfind(':') + 1);
    } catch (const std::bad_alloc&) {
      return "out of memory";
    }
  };
  const std::string right = outcomeOf(good);
  const testing::Matcher<std::string> isRefused =
      AnyOf("BadParquet", "BadColumnData", "UnknownColumn", "UnsupportedColumn", "BadText",
            "out of memory");
  std::set<std::string> outcomes;
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const int change : {0x01, 0x80, 0xFF}) {
      std::string bytes = good;
      bytes[at] = static_cast<char>(bytes[at] ^ change);
      const std::string outcome = outcomeOf(bytes);
      EXPECT_THAT(outcome, AnyOf(right, isRefused)) << "byte " << at << " with " << change;
      outcomes.insert(outcome);
    }
  }
  EXPECT_THAT(outcomes, testing::IsSupersetOf(
                            {right, std::string("BadParquet"), std::string("BadColumnData")}));
}

TEST_F(Parquet, NamesTheColumnAndTheRowsOfDamagedPages) {
  std::vector<double> values(70'000);
  for (std::size_t row = 0; row < values.size(); ++row) {
    values[row] = static_cast<double>(row) * 1.5;
  }
  const std::string good =
      parquetBytes({{"good", doubles({values.begin(), values.end()})}, {"bad", doubles(values)}},
                   {.compression = arrow::Compression::UNCOMPRESSED});
  std::string bytes = good;
  const double late = values[50'000];
  const std::string_view needle(reinterpret_cast<const char*>(&late), sizeof late);
  bytes[bytes.rfind(needle)] ^= 1;
  const auto source = openParquet({folder_.write("bad.parquet", bytes)});
  EXPECT_EQ(allValues<double>(*source, "good"), values);
  const auto error = stepErrorOf([&] { allValues<double>(*source, "bad"); });
  EXPECT_EQ(error.id(), "KALVEX:datastore:BadColumnData");
  EXPECT_THAT(error.what(), HasSubstr("bad.parquet', column 'bad', rows "));
  EXPECT_THAT(error.what(), HasSubstr("a page doesn't match its checksum"));
  for (const char* days : {"[0, 2000000000]", "[0, -2000000000]"}) {
    const auto far = openParquet({write("far.parquet", {{"d", arrayOf(arrow::date32(), days)}})});
    EXPECT_THAT(stepErrorOf([&] { allValues<std::int64_t>(*far, "d"); }).what(),
                HasSubstr("doesn't fit 64-bit microseconds"));
  }
  const auto notText = openParquet({write("latin.parquet", {{"t", texts({"a", "caf\xE9"})}})});
  const auto bad = stepErrorOf([&] { allTexts(*notText, "t"); });
  EXPECT_EQ(bad.id(), "KALVEX:datastore:BadText");
  EXPECT_THAT(bad.arguments(), ElementsAre(folder_.path("latin.parquet"), "2", "t"));
}

TEST_F(Parquet, NoticesAFileThatChanges) {
  namespace fs = std::filesystem;
  const std::string one = parquetBytes({{"x", doubles(std::vector<double>(100'000, 1))}});
  const std::string two = parquetBytes({{"x", doubles(std::vector<double>(100'000, 2))}});
  ASSERT_EQ(one.size(), two.size());
  const std::string path = folder_.path("t.parquet");
  const CancellationToken never;
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"is overwritten", [&] { std::ofstream(path, std::ios::in | std::ios::out) << two; }},
      {"is replaced", [&] { fs::rename(folder_.write("new", two), path); }},
      {"is removed", [&] { fs::remove(path); }},
  };
  for (const auto& [what, change] : changes) {
    const auto source = openParquet({folder_.write("t.parquet", one)});
    const auto reader = source->openPartition(0, {"x"}, never);
    ASSERT_TRUE(reader->next());
    change();
    const auto error = stepErrorOf([&] {
      while (reader->next()) {
      }
    });
    EXPECT_EQ(error.id(), "KALVEX:datastore:SourceChanged") << what;
    EXPECT_EQ(stepErrorOf([&] { source->copy()->preview(1); }).id(),
              "KALVEX:datastore:SourceChanged")
        << what;
  }
}

TEST_F(Parquet, IsOpenedFromItsDescription) {
  const std::string path =
      write("t.parquet", {{"x", doubles({1, 2, 3})}, {"d", arrayOf(arrow::date32(), "[1, 2, 3]")}},
            {.groupRows = 2});
  const BlockDatastore source(kParquetBlocks, std::vector{path}, {}, 1);
  const std::string description = source.describe();
  const auto opened = openSource(description);
  EXPECT_EQ(opened->schema(), source.schema());
  EXPECT_EQ(opened->fingerprint(), source.fingerprint());
  EXPECT_EQ(allValues<double>(*opened, "x"), (std::vector<double>{1, 2, 3}));
  for (std::size_t size = 0; size < description.size(); ++size) {
    EXPECT_EQ(stepErrorOf([&] { openSource(description.substr(0, size)); }).id(),
              "KALVEX:executor:BadBytes");
  }
  // A footer that differs while size and time agree.
  const auto time = std::filesystem::last_write_time(path);
  std::string bytes = parquetBytes(
      {{"y", doubles({1, 2, 3})}, {"d", arrayOf(arrow::date32(), "[1, 2, 3]")}}, {.groupRows = 2});
  ASSERT_EQ(bytes.size(), std::filesystem::file_size(path));
  folder_.write("t.parquet", bytes);
  std::filesystem::last_write_time(path, time);
  EXPECT_EQ(stepErrorOf([&] { allValues<double>(*openSource(description), "x"); }).id(),
            "KALVEX:datastore:SourceChanged");
}

TEST_F(Parquet, StopsWithinAChunkWhenCancelled) {
  const auto source =
      openParquet({write("t.parquet", {{"x", doubles(std::vector<double>(100'000, 1))}})});
  CancellationToken token;
  const auto reader = source->openPartition(0, {"x"}, token);
  EXPECT_TRUE(reader->next());
  token.cancel();
  EXPECT_THROW(reader->next(), Cancelled);
}

}  // namespace
}  // namespace kv::runtime
