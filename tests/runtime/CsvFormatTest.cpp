#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "kv/runtime/times.h"
#include "runtime/readAll.h"
#include "source/csv/CsvDatastore.h"
#include "source/csv/MomentPattern.h"
#include "source/registry/openSource.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using kv::test::TempFolder;
using test::allTexts;
using test::stepErrorOf;
using testing::HasSubstr;

class CsvFormats : public testing::Test {
 protected:
  std::string write(const std::string& text) { return folder_.writeAtRest("table.csv", text); }

  TempFolder folder_;
};

/// Three columns of texts, as they are and as they are written.
struct WrittenTable {
  std::vector<std::vector<std::string>> columns{3};
  std::string text;
};

std::string fieldOf(const std::string& value, char separator) {
  if (value.find_first_of(std::string("\"\n") + separator) == std::string::npos) {
    return value;
  }
  std::string quoted = "\"";
  for (const char c : value) {
    quoted += c == '"' ? "\"\"" : std::string(1, c);
  }
  return quoted + "\"";
}

WrittenTable writtenTable(const CsvFormat& format, std::mt19937& random) {
  const std::string values[] = {"NULL", "N/A", "NA",  "",   "1",    "a,b",  "c;d",
                                "e\tf", "g|h", "i:j", "\"", "k\nl", "word", "größe"};
  WrittenTable table;
  table.text =
      format.hasHeader ? std::string("a") + format.separator + "b" + format.separator + "c\n" : "";
  for (int row = 0; row < 12; ++row) {
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      const std::string& value = values[random() % std::size(values)];
      const bool isMissing =
          value.empty() ||
          (format.missing && std::ranges::find(*format.missing, value) != format.missing->end());
      table.columns[column].push_back(isMissing ? "<missing>" : value);
      // An empty line would be skipped.
      table.text += fieldOf(value, format.separator) + (column == 2 ? '\n' : format.separator);
    }
  }
  return table;
}

TEST_F(CsvFormats, GiveTheFieldsThatWereWrittenWhereverTheFileIsCut) {
  std::mt19937 random(static_cast<std::mt19937::result_type>(kv::test::drawSeed()));
  const std::optional<std::vector<std::string>> markers[] = {
      std::nullopt, std::vector<std::string>{}, std::vector<std::string>{"NULL", "N/A"}};
  std::set<std::string> prints;
  std::set<std::string> notes;
  for (const char separator : {',', '\t', ';', '|', ':'}) {
    for (const bool hasHeader : {true, false}) {
      for (const auto& missing : markers) {
        const CsvFormat format{separator, hasHeader, missing, {}};
        const WrittenTable written = writtenTable(format, random);
        const std::string path = write(written.text);
        const std::vector<std::string> names =
            hasHeader ? std::vector<std::string>{"a", "b", "c"}
                      : std::vector<std::string>{"column_1", "column_2", "column_3"};
        std::vector<TypeOverride> types;
        for (const std::string& name : names) {
          types.push_back({name, "string"});
        }
        for (const std::int64_t bytes : {40, 100'000}) {
          SCOPED_TRACE(written.text);
          const CsvDatastore source(std::vector{path}, types, format, bytes);
          const auto again = openSource(source.describe());
          EXPECT_EQ(again->fingerprint(), source.fingerprint());
          for (std::size_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ(allTexts(*again, names[i]), written.columns[i]);
          }
          prints.insert(source.fingerprint());
          notes.insert(source.formatNote());
        }
      }
    }
  }
  EXPECT_EQ(prints.size(), 5U * 2 * 3 * 2);
  EXPECT_EQ(notes.size(), 5U * 2 * 3);
}

TEST_F(CsvFormats, DetectTheSeparatorFromTheFirstRecords) {
  const std::pair<std::string, char> files[] = {
      {"a,b\n1,2\n", ','},
      {"a\tb\n1\t2\n", '\t'},
      {"a;b\n1,5;2,5\n", ';'},
      {"a|b", '|'},
      {"\xEF\xBB\xBF\"a;b;c\",d\n1,2\n", ','},
      {"\r\n\r\n\"a,\n,b\";c\n1;2\n", ';'},
      {"price, total;day;name, first;x\n1;2;3;4\n", ';'},
      {"time,values [a;b;c]\n1,2\n", ','},
      {"only|one\n5\n", ','},
      {"only|one\n5", ','},
      {"a;b;c\n1;2\n", ';'},
      {"word\n1\n", ','},
      {"\n", ','},
      {std::string(40'000, ',') + std::string(40'000, ';'), ','},
  };
  for (const auto& [text, separator] : files) {
    EXPECT_EQ(detectSeparator({SourceFile::stat(write(text)), {}}), separator)
        << text.substr(0, 50);
  }
}

TEST_F(CsvFormats, AreNamedWhereFieldsDontFitThem) {
  const auto messageOf = [&](const std::string& text, const CsvFormat& format) {
    return std::string(stepErrorOf([&] {
                         const auto source = openCsv({write(text)}, {}, format);
                         test::readAll(*source, {"column_1"}, [](const Chunk&) {});
                       }).what());
  };
  EXPECT_THAT(messageOf("1;2\n3;4\n5\n", {.hasHeader = false}),
              HasSubstr("row 3 (line 3): the number of fields must be 2, as in the first record, "
                        "got 1; fields are separated by semicolons: 5"));
  EXPECT_THAT(messageOf("", {.hasHeader = false}), HasSubstr("a record was expected"));
  const std::string first = folder_.write("1.csv", "a\tb\n1\t2\n");
  const std::string second = folder_.write("2.csv", "a,b\n1,2\n");
  EXPECT_THAT(stepErrorOf([&] {
                openCsv({first, second});
              }).what(),
              HasSubstr("1 columns, not 2; fields are separated by tabs."));
}

TEST(Separators, AreOneCharacterThatFieldsCanDoWithout) {
  const std::pair<std::string_view, char> names[] = {{"", '\0'},    {",", ','},   {"tab", '\t'},
                                                     {"\\t", '\t'}, {"\t", '\t'}, {"\x01", '\x01'}};
  for (const auto& [name, separator] : names) {
    EXPECT_EQ(separatorNamed(name), separator);
  }
  for (const char* const name : {"::", "\"", "\n", "\r", "é", "tabs", "\t\t"}) {
    EXPECT_EQ(stepErrorOf([&] { separatorNamed(name); }).id(), "KALVEX:datastore:BadSeparator");
  }
}

TEST(MomentPattern, ReadsMomentsThatExist) {
  struct Case {
    const char* pattern;
    const char* text;
    const char* moment;  ///< empty: not a moment of the pattern
  };
  const Case cases[] = {
      {"%d.%m.%Y", "31.12.2013", "2013-12-31T00:00:00"},
      {"%d.%m.%Y", "29.02.2024", "2024-02-29T00:00:00"},
      {"%d.%m.%Y", "29.02.2023", ""},
      {"%d.%m.%Y", "31.04.2023", ""},
      {"%d.%m.%Y", "31.12.2013 5", ""},
      {"%d.%m.%Y", "2013-12-31", ""},
      {"%m/%d/%y %I:%M %p", "7/4/76 11:05 PM", "1976-07-04T23:05:00"},
      {"%Y%m%d%H%M%S", "20131231235959", "2013-12-31T23:59:59"},
      {"%Y-%m-%d %H:%M:%S", "2016-12-31 23:59:60", ""},
      {"%d %b %Y %T.%f", "5 Mar 1969 01:02:03.5", "1969-03-05T01:02:03.500000"},
      {"%d %b %Y %T.%f", "5 Mar 1969 01:02:03.1234567", ""},
      {"%d %b %Y %T.%f", "5 Mar 1969 01:02:03.", ""},
      {"%T.%f %F %z", "01:02:03.25 2020-01-01 +0130", "2019-12-31T23:32:03.250000"},
      {"%Y", "2020", "2020-01-01T00:00:00"},
      {"%Y %j", "2024 366", "2024-12-31T00:00:00"},
      {"%%%Y", "%2020", "2020-01-01T00:00:00"},
  };
  for (const Case& each : cases) {
    const auto moment = MomentPattern(each.pattern).parse(each.text);
    EXPECT_EQ(moment.has_value(), *each.moment != '\0') << each.text;
    if (moment) {
      EXPECT_EQ(parseMoment(each.moment)->microseconds, moment->microseconds) << each.text;
      EXPECT_EQ(moment->hasOffset, std::string(each.pattern).ends_with("%z"));
    }
  }
  for (const char* const pattern : {"", "%H:%M", "%s %Y", "%Y %", "%Y %q", "%Y %f %f", "%Ey"}) {
    EXPECT_TRUE(MomentPattern::problemOf(pattern)) << pattern;
  }
}

TEST_F(CsvFormats, HaveAPatternForTheMomentsOfAColumn) {
  const std::string path = write("day,x\n31.12.2013,1\n,2\nNA,3\nNaT,4\n");
  const CsvDatastore source(std::vector{path}, {{"day", "datetime(%d.%m.%Y)"}});
  EXPECT_EQ(source.schema()[0].fileType, "text by the pattern %d.%m.%Y");
  EXPECT_EQ(test::allValues<std::int64_t>(*openSource(source.describe()), "day"),
            (std::vector<std::int64_t>{1'388'448'000'000'000, kNaT, kNaT, kNaT}));
  EXPECT_NE(CsvDatastore(std::vector{path}, {{"day", "datetime(%d.%m.%y)"}}).fingerprint(),
            source.fingerprint());
  const auto wrong = openCsv({path}, {{"day", "datetime(%d/%m/%Y)"}});
  EXPECT_THAT(stepErrorOf([&] { test::allValues<std::int64_t>(*wrong, "day"); }).what(),
              HasSubstr("row 1 (line 2), column 'day': \"31.12.2013\" isn't a value of type "
                        "datetime, which the column has by the pattern %d/%m/%Y;"));
  const auto noYear = stepErrorOf([&] { openCsv({path}, {{"day", "datetime(%d.%m)"}}); });
  EXPECT_EQ(noYear.id(), "KALVEX:datastore:BadPattern");
  EXPECT_THAT(noYear.what(), HasSubstr("'%d.%m' isn't a pattern of moments: it has no year."));
  EXPECT_EQ(stepErrorOf([&] {
              openCsv({path}, {{"z", "datetime(%Y)"}});
            }).id(),
            "KALVEX:datastore:UnknownColumn");
}

}  // namespace
}  // namespace kv::runtime
