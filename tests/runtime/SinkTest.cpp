#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <sstream>

#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/files.h"
#include "makeColumn.h"
#include "readAll.h"
#include "sink/PartWriter.h"
#include "support/SystemCalls.h"
#include "support/TempFolder.h"
#include "support/Worlds.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;
using kv::test::Fault;
using test::stepErrorOf;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::StartsWith;

using Names = std::vector<std::string>;

Chunk rowsOf(std::vector<Column> columns, std::int64_t first = 0) {
  return {.ordinals = RowOrdinals(first, columns.front().rows()), .columns = std::move(columns)};
}

/// Writes one chunk per partition.
std::int64_t writeParts(WriteTarget target, const Names& names, const std::vector<Chunk>& parts) {
  target.names = names;
  PartsMerge merge(target);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    PartWriter writer(target, static_cast<std::int64_t>(i), std::ssize(parts));
    writer.write(parts[i]);
    merge.add(WrittenPart::fromBytes(writer.finish().toBytes()));
  }
  return merge.finish();
}

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> entriesOf(const std::string& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

class Sink : public ::testing::Test {
 protected:
  kv::test::TempFolder folder;
};

std::vector<std::optional<std::string>> shown(const Column& column) {
  if (column.type() == ElementType::String) {
    return textsOf(column);
  }
  std::vector<std::optional<std::string>> values;
  for (const double value : numbersOf(column)) {
    values.push_back(std::isnan(value) ? std::nullopt
                                       : std::optional(std::to_string(value) +
                                                       (std::signbit(value) ? " -" : "")));
  }
  return values;
}

/// Three partitions, of which the second has no rows, of columns of all types: with missing values
/// in the last row, for types that have them in all formats.
TEST_F(Sink, WrittenTablesOpenAgainWithTheSameRowsTypesAndOrder) {
  Names names;
  std::vector<TypeOverride> types;
  std::vector<std::vector<Column>> parts(3);
  std::map<std::string, std::vector<std::optional<std::string>>> expected;
  for (const ElementType type : allElementTypes()) {
    const std::string name = "\"" + std::string(elementTypeName(type)) + "\", ä";
    const bool isText = type == ElementType::String;
    const Column first = isText ? texts({" ", "a \"b\"\r\n,c", "NA"}) : numbers(type, {1, 0, 1});
    const Column last = isText          ? texts({"ä", std::nullopt})
                        : isWhole(type) ? numbers(type, {1, 0})
                                        : numbers(type, {1, kNaN});
    for (std::size_t part = 0; part < 3; ++part) {
      parts[part].push_back(part == 0 ? first : part == 1 ? emptyColumn(type) : last);
      const auto values = shown(parts[part].back());
      expected[name].insert(expected[name].end(), values.begin(), values.end());
    }
    names.push_back(name);
    types.push_back({name, std::string(elementTypeName(type))});
  }
  const std::vector<Chunk> chunks{rowsOf(parts[0]), rowsOf(parts[1]), rowsOf(parts[2])};
  for (const auto& [name, format] : std::map<std::string, std::string>{
           {"a.parquet", ""}, {"a.csv", ""}, {"a", ""}, {"b", "csv"}}) {
    SCOPED_TRACE(name);
    const std::string path = folder.path(name);
    EXPECT_EQ(writeParts(targetOf(path, format, false), names, chunks), 5);
    const bool isCsv = name == "a.csv" || format == "csv";
    const auto source = openFiles({{path}, isCsv ? types : std::vector<TypeOverride>{}});
    EXPECT_EQ(test::namesOf(*source), names);
    std::map<std::string, std::vector<std::optional<std::string>>> actual;
    test::readAll(*source, names, [&](const Chunk& chunk) {
      for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(elementTypeName(chunk.columns[i].type()), types[i].type);
        const auto values = shown(chunk.columns[i]);
        actual[names[i]].insert(actual[names[i]].end(), values.begin(), values.end());
      }
    });
    EXPECT_EQ(actual, expected);
  }
  EXPECT_THAT(entriesOf(folder.path("a")),
              ElementsAre("_kv_manifest.json", "part-00000.parquet", "part-00002.parquet"));
  EXPECT_THAT(entriesOf(folder.path()), ElementsAre("a", "a.csv", "a.parquet", "b"));
}

TEST_F(Sink, MissingIntegersAndLogicalsAreKeptInParquet) {
  for (const ElementType type : {ElementType::Logical, ElementType::Int8, ElementType::UInt64}) {
    const std::string path = folder.path(std::string(elementTypeName(type)) + ".parquet");
    writeParts(targetOf(path, "", false), {"x"}, {rowsOf({numbers(type, {1, kNaN, 0})})});
    test::readAll(*openFiles({{path}}), {"x"}, [](const Chunk& chunk) {
      EXPECT_THAT(shown(chunk.columns[0]), ElementsAre("1.000000", std::nullopt, "0.000000"));
    });
  }
}

/// 300,000 rows in two partitions: row groups of at most 131,072 rows, all of them in the joined
/// file with their statistics.
TEST_F(Sink, ParquetFilesAreJoinedByRowGroups) {
  std::vector<double> values(300'000);
  std::iota(values.begin(), values.end(), 0.0);
  std::vector<Chunk> parts;
  for (const std::ptrdiff_t first : {0, 150'000}) {
    const auto begin = values.begin() + first;
    parts.push_back(rowsOf({doubles({begin, begin + 150'000})}));
  }
  const std::string path = folder.path("a.parquet");
  EXPECT_EQ(writeParts(targetOf(path, "", false), {"x"}, parts), 300'000);
  const auto source = openFiles({{path}});
  EXPECT_EQ(test::allValues<double>(*source, "x"), values);
  const CancellationToken never;
  const RowCondition above{"x", findElementFunction("gt"), doubles({290'000})};
  const auto reader = source->openPartitionWhere(0, {"x"}, {above}, never);
  EXPECT_EQ(reader->next()->ordinals.at(0), 150'000 + 131'072) << "groups that can be skipped";
}

std::string npyHeader(const std::string& content) {
  const std::string text = content.substr(10, content.find('\n') - 10);
  EXPECT_EQ(content.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
  EXPECT_EQ((text.size() + 11) % 64, 0u);
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

TEST_F(Sink, NpyFilesHaveAHeaderAndElementsInCOrder) {
  Chunk matrix = rowsOf({doubles({1, 7}), doubles({2, 8}), doubles({3, 9}), doubles({4, 10}),
                         doubles({5, 11}), doubles({6, 12})});
  matrix.trailing = {3, 2};  // columns are in column-major order
  const std::string path = folder.path("a.npy");
  EXPECT_EQ(writeParts(targetOf(path, "", false), {}, {matrix, matrix}), 4);
  const std::string content = contentOf(path);
  EXPECT_EQ(npyHeader(content), "{'descr': '<f8', 'fortran_order': False, 'shape': (4, 3, 2,), }");
  std::vector<double> elements(24);
  ASSERT_EQ(content.size(), 256 + 24 * sizeof(double));
  std::memcpy(elements.data(), content.data() + 256, 24 * sizeof(double));
  EXPECT_THAT(std::vector(elements.begin() + 6, elements.begin() + 13),
              ElementsAre(7, 10, 8, 11, 9, 12, 1));
}

TEST_F(Sink, RefusesWhatAFormatOrPathCannotHold) {
  const auto idOf = [&](const std::string& name, std::vector<Column> columns,
                        const std::string& format = "") {
    const std::vector<Chunk> parts{rowsOf(std::move(columns))};
    const Names names = parts[0].columns.size() == 1 ? Names{"x"} : Names{"x", "y"};
    return stepErrorOf(
               [&] { writeParts(targetOf(folder.path(name), format, false), names, parts); })
        .id();
  };
  EXPECT_EQ(idOf("a.npy", {texts({"a"})}), "KALVEX:sink:UnsupportedType");
  EXPECT_EQ(idOf("a.npy", {doubles({1}), logicals({1})}), "KALVEX:sink:MixedTypes");
  EXPECT_EQ(idOf("a.npy", {numbers(ElementType::Int8, {kNaN})}), "KALVEX:sink:MissingValue");
  EXPECT_EQ(idOf("a.csv", {texts({std::nullopt})}), "KALVEX:sink:MissingValue");
  EXPECT_EQ(idOf("a.txt", {doubles({1})}), "KALVEX:sink:UnknownFormat");
  EXPECT_EQ(idOf("a", {doubles({1})}, "xml"), "KALVEX:sink:UnknownFormat");
  EXPECT_EQ(idOf("a.csv", {doubles({1})}, "parquet"), "KALVEX:sink:OtherFormat");
  EXPECT_EQ(idOf("none/a.csv", {doubles({1})}), "KALVEX:sink:CannotWrite");
  EXPECT_THAT(entriesOf(folder.path()), ElementsAre());
  const WriteTarget array = targetOf(folder.path("a.csv"), "", false);
  EXPECT_EQ(stepErrorOf([&] { writeParts(array, {}, {rowsOf({doubles({1})})}); }).id(),
            "KALVEX:array:NeedsTable");
}

TEST_F(Sink, ReplacesOnlyWhatASinkMayReplace) {
  const std::vector<Chunk> one{rowsOf({doubles({1})})};
  const auto write = [&](const std::string& name, bool overwrites) {
    writeParts(targetOf(folder.path(name), "", overwrites), {"x"}, one);
  };
  const auto idOf = [&](const std::string& name, bool overwrites) {
    return stepErrorOf([&] { write(name, overwrites); }).id();
  };
  write("a", false);
  write("a.csv", false);
  folder.write("other/file", "precious");
  fs::create_symlink(folder.path("a"), folder.path("link"));
  EXPECT_EQ(idOf("a", false), "KALVEX:sink:TargetExists");
  EXPECT_EQ(idOf("a.csv", false), "KALVEX:sink:TargetExists");
  EXPECT_EQ(idOf("link", false), "KALVEX:sink:TargetExists");
  EXPECT_EQ(idOf("link", true), "KALVEX:sink:NotReplaceable");
  EXPECT_EQ(idOf("other", true), "KALVEX:sink:NotReplaceable");
  write("a/", true);
  write("a.csv", true);
  EXPECT_THAT(entriesOf(folder.path()), ElementsAre("a", "a.csv", "link", "other"));
  struct stat status {};
  ASSERT_EQ(::stat(folder.path("a").c_str(), &status), 0);
  const mode_t mask = ::umask(0);
  ::umask(mask);
  EXPECT_EQ(status.st_mode & 0777, 0777 & ~mask);
  const WriteTarget target = targetOf(folder.path("a"), "", true);
  const std::string part = folder.path("link/part-00000.parquet");
  EXPECT_EQ(stepErrorOf([&] { checkTarget(target, {&part, 1}); }).id(), "KALVEX:sink:OverSource");
}

TEST_F(Sink, FoldersAreNamedByTheValuesOfKeys) {
  const std::vector<Chunk> parts{
      rowsOf({texts({"a/b", std::nullopt, "a/b", "ü"}), doubles({1, 2, 3, 4}),
              numbers(ElementType::Int8, {7, 7, 7, kNaN})}),
      rowsOf({texts({"ü", ""}), doubles({5, 6}), numbers(ElementType::Int8, {kNaN, -1})})};
  const Names names{"k=", "x", "n"};
  WriteTarget target = targetOf(folder.path("a"), "csv", false);
  setColumns(target, names, {"k=", "n"});
  EXPECT_EQ(writeParts(target, names, parts), 6);
  const std::string missing = "__HIVE_DEFAULT_PARTITION__";
  const std::string umlaut = "a/k%3D=%C3%BC/n=" + missing;
  std::map<std::string, std::string> content;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder.path("a"))) {
    if (entry.path().extension() == ".csv") {
      content[fs::relative(entry.path(), folder.path())] = contentOf(entry.path());
    }
  }
  EXPECT_THAT(content, ::testing::UnorderedElementsAre(
                           std::pair("a/k%3D=a%2Fb/n=7/part-00000.csv", "\"x\"\n1\n3\n"),
                           std::pair("a/k%3D=" + missing + "/n=7/part-00000.csv", "\"x\"\n2\n"),
                           std::pair(umlaut + "/part-00000.csv", "\"x\"\n4\n"),
                           std::pair(umlaut + "/part-00001.csv", "\"x\"\n5\n"),
                           std::pair("a/k%3D=/n=-1/part-00001.csv", "\"x\"\n6\n")));
  const auto idOf = [&](const std::string& path, const Names& keys) {
    WriteTarget other = targetOf(folder.path(path), "", false);
    return stepErrorOf([&] { setColumns(other, names, keys); }).id();
  };
  EXPECT_EQ(idOf("b", {"none"}), "KALVEX:array:UnknownColumn");
  EXPECT_EQ(idOf("b", {"x", "x"}), "KALVEX:array:SameName");
  EXPECT_EQ(idOf("b.csv", {"x"}), "KALVEX:sink:NeedsFolder");
  EXPECT_EQ(idOf("b", names), "KALVEX:sink:OnlyKeys");
  std::vector<double> many(kMostFolders + 1);
  std::iota(many.begin(), many.end(), 0.0);
  WriteTarget wide = targetOf(folder.path("b"), "", false);
  setColumns(wide, {"x", "y"}, {"x"});
  const std::vector<Chunk> rows{rowsOf({doubles(many), doubles(many)})};
  EXPECT_EQ(stepErrorOf([&] {
              writeParts(wide, {"x", "y"}, rows);
            }).id(),
            "KALVEX:sink:TooManyFolders");
  EXPECT_THAT(entriesOf(folder.path()), ElementsAre("a"));
}

/// A staging folder is removed unless a run of a sink holds its lock.
TEST_F(Sink, TheNextRunRemovesWhatAKilledOneLeft) {
  const std::string left = ".kv-0123456789abcdef0123456789abcdef";
  const std::string held = ".kv-0123456789abcdef0123456789abcdee";
  folder.write(left + "/content/deep/file", "x");
  folder.write(held + "/content/file", "x");
  folder.write(".kv-mine/file", "x");
  folder.write("outside/file", "x");
  fs::create_symlink(folder.path("outside"), folder.path(left + "/content/link"));
  const int lock = ::open(folder.path(held).c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  writeParts(targetOf(folder.path("a.csv"), "", false), {"x"}, {rowsOf({doubles({1})})});
  EXPECT_THAT(entriesOf(folder.path()), ElementsAre(held, ".kv-mine", "a.csv", "outside"));
  EXPECT_THAT(entriesOf(folder.path("outside")), ElementsAre("file"));
  ::close(lock);
}

/// A sink that replaces an older target, in processes that are killed or whose calls fail.
class SinkFaults : public Sink {
 protected:
  void SetUp() override {
    if (!kv::test::canTrace()) {
      GTEST_SKIP() << "processes can't be traced here";
    }
  }

  void write(const std::string& path, double value) const {
    const Chunk rows = rowsOf({doubles({value, value})});
    writeParts(targetOf(path, "", true), {"x"}, {rows, rows});
  }

  kv::test::TracedRun writeTraced(const std::string& path, const Fault& fault) const {
    return kv::test::runTraced(
        [&] {
          try {
            write(path, 2);
          } catch (const errors::StepError& error) {
            return error.id() + " | " + error.arguments().front();
          } catch (const std::exception& error) {
            return std::string(error.what());
          }
          return std::string("written");
        },
        fault);
  }

  static std::string standing(const std::string& path) {
    if (!fs::exists(path)) {
      return "nothing";
    }
    const std::vector<double> values = test::allValues<double>(*openFiles({{path}}), "x");
    return values == std::vector<double>(4, 1)   ? "old"
           : values == std::vector<double>(4, 2) ? "new"
                                                 : "a part";
  }

  std::size_t leftovers() const { return entriesOf(folder.path()).size() - 1; }

  static constexpr std::size_t kEndOfWork = 2'000;

  /// Of the system calls, only some in a quick world: others for each target.
  const std::size_t stride = kv::test::sizes().faults < kEndOfWork ? 5 : 1;
};

TEST_F(SinkFaults, KilledAtAnySystemCallItLeavesTheOldOrTheNewAndTheNextRunCleansUp) {
  for (const std::string name : {"a", "a.csv", "a.parquet"}) {
    const std::string path = folder.path(name);
    std::map<std::string, int> seen;
    std::size_t most = 0;
    write(path, 1);
    for (Fault fault{name.size() % stride, Fault::Kind::killBefore, 0}; fault.call < kEndOfWork;
         fault.call += stride) {
      const auto run = writeTraced(path, fault);
      if (run.outcome) {
        break;
      }
      ++seen[standing(path)];
      most = std::max(most, leftovers());
      write(path, 1);
      ASSERT_EQ(leftovers(), 0u) << run.calls.back();
    }
    EXPECT_EQ(seen["old"] > 0 && seen["new"] > 0 && seen.size() == 2, true) << name;
    EXPECT_GT(most, 0u) << name;
    fs::remove_all(path);
  }
}

TEST_F(SinkFaults, AFailingCallIsReportedAndLeavesTheOldOrTheNew) {
  struct Row {
    Fault::Kind kind;
    int error;
    const char* id;
  };
  for (const Row& row : {Row{Fault::Kind::fail, EIO, "KALVEX:sink:CannotWrite | "},
                         Row{Fault::Kind::fail, ENOSPC, "KALVEX:sink:NoSpace | "},
                         Row{Fault::Kind::shorten, 0, "none"}}) {
    for (const std::string name : {"a", "a.csv"}) {
      const std::string path = folder.path(name);
      int failures = 0;
      write(path, 1);
      for (Fault fault{name.size() % stride, row.kind, row.error}; fault.call < kEndOfWork;
           fault.call += stride) {
        const auto run = writeTraced(path, fault);
        if (run.calls.size() <= fault.call) {
          break;
        }
        const std::string& call = run.calls[fault.call];
        const bool mustFail = row.error != 0 && (call == "pwrite" || call == "fsync" ||
                                                 call == "mkdir" || call == "renameat2");
        failures += *run.outcome == "written" ? 0 : 1;
        ASSERT_THAT(*run.outcome, AnyOf("written", row.id + path)) << call;
        ASSERT_EQ(mustFail && *run.outcome == "written", false) << call;
        ASSERT_THAT(standing(path),
                    *run.outcome == "written" ? AnyOf("new", "new") : AnyOf("old", "new"))
            << call;
        write(path, 1);
        ASSERT_EQ(leftovers(), 0u) << call;
      }
      EXPECT_EQ(failures > 0, row.error != 0);
      fs::remove_all(path);
    }
  }
}

}  // namespace
}  // namespace kv::runtime
