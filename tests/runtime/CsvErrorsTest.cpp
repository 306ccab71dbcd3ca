#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "kv/runtime/csv.h"
#include "runtime/readAll.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using namespace std::string_literals;
using kv::test::TempFolder;
using test::namesOf;
using test::readAll;
using test::stepErrorOf;

struct BadFile {
  std::string text;
  std::vector<TypeOverride> types;
  std::string id;                      ///< after "KALVEX:datastore:"
  std::vector<std::string> arguments;  ///< the first ones after the path
};

/// Reads all columns of all rows of the files.
void readWhole(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types) {
  const auto source = openCsv(paths, types);
  readAll(*source, namesOf(*source), [](const Chunk&) {});
}

void expectError(const TempFolder& folder, const BadFile& bad) {
  SCOPED_TRACE(bad.text.substr(0, 60));
  const std::string path = folder.write("bad.csv", bad.text);
  const errors::StepError error = stepErrorOf([&] { readWhole({path}, bad.types); });
  std::vector<std::string> arguments{path};
  arguments.insert(arguments.end(), bad.arguments.begin(), bad.arguments.end());
  EXPECT_EQ(error.id(), "KALVEX:datastore:" + bad.id);
  EXPECT_THAT(std::span(error.arguments()).first(arguments.size()),
              testing::ElementsAreArray(arguments));
  for (const std::string& argument : arguments) {
    EXPECT_THAT(error.what(), testing::HasSubstr(argument));
  }
}

TEST(CsvErrors, NameTheFormatFault) {
  const TempFolder folder;
  const std::string manyRows = [] {
    std::string rows;
    for (int i = 0; i < 400000; ++i) {
      rows += "1,2\n";
    }
    return rows;
  }();
  const BadFile files[] = {
      {"", {}, "EmptyFile", {}},
      {"\r\n\n", {}, "EmptyFile", {}},
      {"\xEF\xBB\xBF", {}, "EmptyFile", {}},
      {"a,b\n1,2\n3\n", {}, "RaggedRow", {"2", "3", "1", "2", "3"}},
      {"a,b\n1,2\n\n3,4,5\n", {}, "RaggedRow", {"2", "4", "3", "2", "3,4,5"}},
      {"a,b\n\"1\n\",2\r\n\r\n3", {}, "RaggedRow", {"2", "5", "1", "2", "3"}},
      {"a,b\n" + manyRows + "3\n", {}, "RaggedRow", {"400001", "400002", "1", "2", "3"}},
      {"a,b\n1,\0\n"s, {}, "NotText", {"2", "6", "0x00"}},
      {"a,b\n1,2\n3,caf\xE9\n", {}, "NotText", {"3", "13", "0xE9"}},
      {"a,b\n1,\xC3", {}, "NotText", {"2", "6", "0xC3"}},
      {"a,b\n" + manyRows + "\xFF", {}, "NotText", {"400002", "1600004", "0xFF"}},
      {"\xFF\xFE"
       "a\0,\0b\0\n\0"s,
       {},
       "OtherFormat",
       {"text in UTF-16"}},
      {"\xFE\xFF\0a\0,\0b\0\n"s, {}, "OtherFormat", {"text in UTF-16"}},
      {"a\0,\0b\0\n\0"s, {}, "OtherFormat", {"text in UTF-16"}},
      {"\x1F\x8B\x08\x00"s,
       {},
       "BadCompression",
       {"gzip", "4", "ends early, as if the file weren't copied completely"}},
      {"PK\x03\x04\x14\0"s, {}, "OtherFormat", {"a ZIP archive"}},
      {"PAR1\x15\0"s, {}, "OtherFormat", {"a Parquet file"}},
      {"a,b\n1,2\n3,\"x\n4,5\n", {}, "UnterminatedQuote", {"3"}},
      {"a,\"b\n1,2\n", {}, "UnterminatedQuote", {"1"}},
      {"a\n\"" + std::string(18 << 20, 'x'), {}, "RecordTooLong", {"2", "16777216"}},
  };
  for (const BadFile& bad : files) {
    expectError(folder, bad);
  }
}

TEST(CsvErrors, NameTheFieldThatAColumnCannotHold) {
  const TempFolder folder;
  std::string manyRows;
  for (int i = 0; i < 400000; ++i) {
    manyRows += i % 2 ? "1,\"a\r\nb\"\n" : "\n1,c\n";
  }
  const BadFile files[] = {
      {"a\n1\nx\n", {{"a", "double"}}, "BadField", {"2", "3", "a", "x", "double", "string"}},
      {"a\n1\n300\n", {{"a", "int8"}}, "BadField", {"2", "3", "a", "300", "int8", "int16"}},
      {"a\n300\n40000\n", {{"a", "int8"}}, "BadField", {"1", "2", "a", "300", "int8", "int32"}},
      {"a\n300\n", {{"a", "uint8"}}, "BadField", {"1", "2", "a", "300", "uint8", "uint16"}},
      {"a\n-1\n", {{"a", "uint8"}}, "BadField", {"1", "2", "a", "-1", "uint8", "int16"}},
      {"a\n-1\n", {{"a", "uint64"}}, "BadField", {"1", "2", "a", "-1", "uint64", "int64"}},
      {"a\n1.5\n", {{"a", "int32"}}, "BadField", {"1", "2", "a", "1.5", "int32", "double"}},
      {"a\n300\nx\n", {{"a", "int8"}}, "BadField", {"1", "2", "a", "300", "int8", "string"}},
      {"a\nyes\n", {{"a", "logical"}}, "BadField", {"1", "2", "a", "yes", "logical", "string"}},
      {"a,b\n1,2\n,3\n", {{"a", "int64"}}, "MissingField", {"2", "3", "a", "", "int64", "double"}},
      {"a\n1\nNA\n",
       {{"a", "logical"}},
       "MissingField",
       {"2", "3", "a", "NA", "logical", "double"}},
      {"a\n9007199254740993\n",
       {},
       "NumberTooLarge",
       {"1", "2", "a", "9007199254740993", "double", "int64"}},
      {"a\n1\n-0009007199254740994\n",
       {},
       "NumberTooLarge",
       {"2", "3", "a", "-0009007199254740994", "double", "int64"}},
      {"a,b\n" + manyRows + "\nx,z\n",
       {},
       "BadField",
       {"400001", "800003", "a", "x", "double", "string"}},
  };
  for (const BadFile& bad : files) {
    expectError(folder, bad);
  }
}

TEST(CsvErrors, ShowTheBeginningOfLongTexts) {
  const TempFolder folder;
  std::string longText = "x";
  for (int i = 0; i < 1'000'000; ++i) {
    longText += "é€";
  }
  const BadFile files[] = {
      {"a\n" + longText, {{"a", "int8"}}, "", {}},
      {"a,b\n" + longText, {}, "", {}},
      {longText + "\nx", {{longText, "int8"}}, "", {}},
      {longText + "\n1", {{"b", "int8"}}, "", {}},
      {longText + ",b\n1,2", {{"b", longText}}, "", {}},
  };
  for (const BadFile& bad : files) {
    const std::string path = folder.write("bad.csv", bad.text);
    const std::string message = stepErrorOf([&] { readWhole({path}, bad.types); }).what();
    EXPECT_THAT(message, testing::HasSubstr("é€é... (5000001 bytes)")) << message.substr(0, 1000);
    EXPECT_LT(message.size(), 1000U);
  }
  std::string manyNames = "c0";
  for (int i = 1; i < 100'000; ++i) {
    manyNames += ",c" + std::to_string(i);
  }
  const std::string path = folder.write("wide.csv", manyNames);
  const std::string message = stepErrorOf([&] { openCsv({path}, {{"z", "int8"}}); }).what();
  EXPECT_THAT(message, testing::HasSubstr("c39 and 99960 more"));
}

TEST(CsvErrors, NameWhatDoesntExist) {
  const TempFolder folder;
  const std::string file = folder.write("a.csv", "x,y\n1,2\n");
  const std::string other = folder.write("b.csv", "y,x\n1,2\n");
  const std::string hollow = folder.path("hollow");
  std::filesystem::create_directory(hollow);
  const auto link = [&](const char* to, const char* name) {
    std::filesystem::create_symlink(to, folder.path(name));
    return folder.path(name);
  };
  const std::string dangling = link("gone.csv", "dangling.csv");
  const std::string loop = link("pool", "loop");
  link("loop", "pool");
  const std::string pipe = folder.path("pipe.csv");
  ::mkfifo(pipe.c_str(), 0600);

  struct Case {
    std::vector<std::string> paths;
    std::vector<TypeOverride> types;
    std::string id;
    std::vector<std::string> arguments;
  };
  const std::string types =
      "logical, double, single, int8, uint8, int16, uint16, int32, uint32, int64, uint64, string, "
      "datetime, duration";
  const Case cases[] = {
      {{folder.path("none.csv")}, {}, "FileNotFound", {folder.path("none.csv")}},
      {{folder.path("none*")},
       {},
       "NoFiles",
       {folder.path("none*"), "no file matches the pattern"}},
      {{hollow}, {}, "NoFiles", {hollow, "the folder contains no .csv file"}},
      {{}, {}, "NoPaths", {}},
      {{dangling},
       {},
       "FileNotReadable",
       {dangling, "'" + dangling + "' is a dangling link: there is no 'gone.csv'"}},
      {{loop + "/a.csv"},
       {},
       "FileNotReadable",
       {loop + "/a.csv", "the link '" + loop + "' leads into a loop of links"}},
      {{file + "/a.csv"},
       {},
       "FileNotReadable",
       {file + "/a.csv", "'" + file + "' isn't a folder"}},
      {{pipe},
       {},
       "FileNotReadable",
       {pipe,
        "it is a pipe, and a source may be read several times; save what it gives in a file "
        "first"}},
      {{file, other},
       {},
       "DifferentColumns",
       {other, "y, x", file, "x, y", "column 1 is 'y', not 'x'", ""}},
      {{file}, {{"z", "double"}}, "UnknownColumn", {"z", "x, y"}},
      {{file}, {{"x", "float"}}, "UnknownType", {"x", "float", types}},
  };
  for (const Case& bad : cases) {
    const errors::StepError error = stepErrorOf([&] { readWhole(bad.paths, bad.types); });
    EXPECT_EQ(error.id(), "KALVEX:datastore:" + bad.id);
    EXPECT_EQ(error.arguments(), bad.arguments);
  }
  const CancellationToken never;
  const auto source = openCsv({file});
  EXPECT_EQ(stepErrorOf([&] { source->openPartition(0, {"z"}, never); }).id(),
            "KALVEX:datastore:UnknownColumn");
  EXPECT_EQ(stepErrorOf([] { parseTypeOverride("x:double"); }).id(),
            "KALVEX:datastore:BadTypeOverride");
}

TEST(CsvErrors, OfTheFormatComeForAnyColumnsAndOfAFieldOnlyForItsColumn) {
  const TempFolder folder;
  std::string rows;
  for (int i = 0; i < 400000; ++i) {
    rows += "1,2\n";
  }
  const auto readRows = [&](const std::string& last, const std::vector<std::string>& columns) {
    const auto source = openCsv({folder.write("a.csv", "x,y\n" + rows + last)});
    readAll(*source, columns, [](const Chunk&) {});
  };
  for (const char* broken : {"3\n", "1,\xFF\n", "1,\"\n"}) {
    const errors::StepError one = stepErrorOf([&] { readRows(broken, {"x"}); });
    const errors::StepError none = stepErrorOf([&] { readRows(broken, {}); });
    EXPECT_STREQ(one.what(), none.what());
  }
  EXPECT_NO_THROW(readRows("1,oops\n", {"x"}));
}

}  // namespace
}  // namespace kv::runtime
