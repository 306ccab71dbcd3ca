#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "ArrayTest.h"

namespace kv::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// The bytes of a file, or of all files in a folder by name.
std::map<std::string, std::string> contentOf(const fs::path& path) {
  std::map<std::string, std::string> content;
  const auto add = [&](const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    content[file.filename().string()] = {std::istreambuf_iterator<char>(stream), {}};
  };
  if (!fs::is_directory(path)) {
    add(path);
    return {{"", content.begin()->second}};
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
    add(entry.path());
  }
  return content;
}

class Write : public ArrayTest {
 protected:
  /// Rows in partitions of several sizes, one of which keeps no row of a filter.
  Table rows(Session& of) const {
    const Array i = of.arange(0, 300'000, 1, {.partitions = {.sizes = {100'000, 0, 7, 199'993}}});
    const std::vector<NamedArray> columns{{"i", i}, {"half", i / 2.0}, {"odd", i % 2 == 1}};
    return tableOf(columns).filter((i % 3 != 0) & ((i < 100'000) | (i > 100'010)));
  }

  std::vector<std::string> left() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
  }
};

TEST_F(Write, GivesTheSameBytesForAnyThreadsAndMemory) {
  for (const std::string name : {"a.parquet", "a.csv", "a.arrow", "a.npy", "a"}) {
    std::vector<std::map<std::string, std::string>> contents;
    for (const int threads : {1, 2, 7}) {
      Session other;
      other.setThreads(threads);
      other.setMemoryLimit(threads == 7 ? "16MB" : "1GB");
      const std::string path = folder.path(std::to_string(threads) + name);
      const Table t = rows(other);
      const bool isMatrix = name == "a.npy";
      const Array written = isMatrix ? other.write(t.column("half"), path) : other.write(t, path);
      EXPECT_EQ(number(written), 199'992);
      contents.push_back(contentOf(path));
    }
    EXPECT_EQ(contents[0] == contents[1] && contents[0] == contents[2], true) << name;
  }
}

TEST_F(Write, SharesItsPassAndReadsBackTheSameRows) {
  const Table t = read("x,word\n1,a\n2,b\n3,\n");
  const std::string path = folder.path("a.parquet");
  const Array written = session.write(t.filter(t.column("x") > 1), path, {.compute = false});
  EXPECT_FALSE(fs::exists(path));
  EXPECT_THAT(session.explain(std::array{written}), HasSubstr("write " + path));
  const Gathered gathered = session.gather(std::array{sum(t.column("x")), written});
  EXPECT_EQ(gathered.facts.passes, 1);
  EXPECT_EQ(gathered.values[0].number(), 6);
  EXPECT_EQ(gathered.values[1].number(), 2);
  EXPECT_THAT(numbers(session.read(path).column("x")), ElementsAre(2, 3));
  EXPECT_EQ(number(written), 2) << "it is written once";
}

TEST_F(Write, WritesWholeValuesAndRepeatsSingleOnes) {
  const Table t = read("x\n1\n2\n3\n");
  const Array x = t.column("x");
  (void)x.gather();
  const std::vector<NamedArray> columns{{"x", x}, {"mean", mean(x)}};
  session.write(tableOf(columns), folder.path("a.csv"));
  EXPECT_EQ(contentOf(folder.path("a.csv"))[""], "\"x\",\"mean\"\n1,2\n2,2\n3,2\n");
  const std::vector<NamedArray> single{{"mean", mean(x)}};
  session.write(tableOf(single), folder.path("b.csv"));
  EXPECT_EQ(contentOf(folder.path("b.csv"))[""], "\"mean\"\n2\n");
}

TEST_F(Write, WritesTheColumnsOfNoRows) {
  const Table t = read("x,word\n1,a\n");
  for (const std::string name : {"a.parquet", "b"}) {
    EXPECT_EQ(number(session.write(t.filter(t.column("x") > 1), folder.path(name))), 0);
    const Table again = session.read(folder.path(name));
    EXPECT_THAT(again.columns(), ElementsAre("x", "word"));
    EXPECT_THAT(again.columnTypes(), ElementsAre("double", "string"));
    EXPECT_EQ(number(countRows(again.column("x"))), 0);
  }
}

/// Nothing is read or left where a write is refused or fails, and the session goes on.
TEST_F(Write, LeavesNothingWhereItFails) {
  const Table t = read("x\n1\n2\n");
  const Array x = t.column("x");
  int calls = 0;
  const Array counted = map(
      [&](auto inputs) {
        ++calls;
        return std::vector<double>(inputs[0].begin(), inputs[0].end());
      },
      std::array{x});
  const std::vector<NamedArray> columns{{"x", counted}};
  folder.write("old.csv", "precious");
  const std::string source = folder.path("table.csv");
  const auto idOf = [&](const std::string& path, bool overwrite) {
    return errorOf([&] { session.write(tableOf(columns), path, {.overwrite = overwrite}); })
        .identifier();
  };
  EXPECT_EQ(idOf(folder.path("old.csv"), false), "KALVEX:sink:TargetExists");
  EXPECT_EQ(idOf(source, true), "KALVEX:sink:OverSource");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(idOf(folder.path("none/a.csv"), false), "KALVEX:sink:CannotWrite");
  // The source may be read for another column only, in an earlier pass.
  const std::vector<NamedArray> others{{"m", session.arange(0, 3) + mean(x)}};
  const Error error = errorOf([&] { session.write(tableOf(others), source, {.overwrite = true}); });
  EXPECT_EQ(error.identifier(), "KALVEX:sink:OverSource");
  const Array failing =
      map([](auto) -> std::vector<double> { throw std::runtime_error("mine"); }, std::array{x});
  const std::vector<NamedArray> bad{{"x", failing}};
  EXPECT_NE(errorOf([&] { session.write(tableOf(bad), folder.path("b")); }).identifier(), "none");
  EXPECT_THAT(left(), ElementsAre("old.csv", "table.csv"));
  EXPECT_EQ(contentOf(folder.path("old.csv"))[""], "precious");
  session.write(t, folder.path("old.csv"), {.overwrite = true});
  EXPECT_THAT(numbers(session.read(folder.path("old.csv")).column("x")), ElementsAre(1, 2));
}

TEST_F(Write, OfASavedArrayNeedsTrust) {
  const Table t = read("x\n1\n2\n");
  const std::string path = folder.path("out");
  const std::vector<NamedArray> named{{"n", session.write(t, path, {.compute = false})}};
  session.save(folder.path("a.kv"), named);
  Session other;
  const auto loaded = [&](Trust trust) {
    return other.open(folder.path("a.kv"), trust).arrays[0].array;
  };
  const Error refused = errorOf([&] { (void)loaded(Trust::No).gather(); });
  EXPECT_EQ(refused.identifier(), "KALVEX:load:NotTrusted");
  EXPECT_THAT(other.explain(std::array{loaded(Trust::No)}), HasSubstr("write " + path));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(number(loaded(Trust::Yes)), 2);
  EXPECT_TRUE(fs::exists(path));
}

}  // namespace

}  // namespace kv::test
