#include "kv/runtime/times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/csv.h"
#include "runtime/makeColumn.h"
#include "runtime/readAll.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using test::stepErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::int64_t timeOf(const std::string& text) {
  const auto moment = parseMoment(text);
  return text == "NaT" ? kNaT : moment ? moment->microseconds : parseDuration(text).value();
}

/// A column of moments, or of durations if one begins with P.
Column times(const std::vector<std::string>& texts) {
  std::vector<std::int64_t> values;
  ElementType type = ElementType::DateTime;
  for (const std::string& text : texts) {
    values.push_back(timeOf(text));
    type = looksLikeDuration(text) ? ElementType::Duration : type;
  }
  return columnOf(type, values);
}

/// The elements of a column of any type, as texts.
std::vector<std::string> shown(const Column& column) {
  std::vector<std::string> all;
  if (column.type() == ElementType::DateTime || column.type() == ElementType::Duration) {
    for (const std::int64_t time : column.values<std::int64_t>()) {
      all.push_back(column.type() == ElementType::Duration ? formatDuration(time)
                                                           : formatMoment(time));
    }
    return all;
  }
  for (const double number : numbersOf(column)) {
    all.push_back(std::isnan(number) ? "missing" : testing::PrintToString(number));
  }
  return all;
}

TEST(Times, AreReadAndWrittenByIso8601) {
  const std::tuple<const char*, std::int64_t, const char*> moments[] = {
      {"1970-01-01", 0, "1970-01-01T00:00:00"},
      {"1969-12-31 23:59:59.999999", -1, "1969-12-31T23:59:59.999999"},
      {"2013-06-01T05:15", 1'370'063'700'000'000, "2013-06-01T05:15:00"},
      {"2000-02-29T12:00:00.5+05:30", 951'805'800'500'000, "2000-02-29T06:30:00.5"},
      {"0001-01-01T00:00:00Z", -62'135'596'800'000'000, "0001-01-01T00:00:00"},
  };
  for (const auto& [text, microseconds, written] : moments) {
    ASSERT_TRUE(parseMoment(text)) << text;
    EXPECT_EQ(parseMoment(text)->microseconds, microseconds) << text;
    EXPECT_EQ(formatMoment(microseconds), written);
  }
  EXPECT_EQ(formatMoment(kNaT + 1), "-290308-12-21T19:59:05.224193");
  EXPECT_EQ(formatMoment(-(kNaT + 1)), "294247-01-10T04:00:54.775807");
  const std::tuple<const char*, std::int64_t, const char*> durations[] = {
      {"PT0S", 0, "PT0S"},
      {"PT90M", 5'400'000'000, "PT1H30M"},
      {"-P1DT0.25S", -86'400'250'000, "-P1DT0.25S"},
      {"+P2W", 1'209'600'000'000, "P14D"},
      {"PT1H1S", 3'601'000'000, "PT1H1S"},
  };
  for (const auto& [text, microseconds, written] : durations) {
    EXPECT_EQ(parseDuration(text), microseconds) << text;
    EXPECT_EQ(formatDuration(microseconds), written);
  }
  for (const char* text : {"", "2013", "2013-02-29", "2013-06-01T25:00", "01.06.2013", "P", "PT",
                           "P1Y", "P1M", "PT1S1H", "PT1.5H", "PT1", "1H", "P--1D", "PT1.1234567S",
                           "P99999999999W", "PT1DT1D", "PT1H1H", "P1DT"}) {
    EXPECT_FALSE(parseMoment(text) || parseDuration(text)) << text;
  }
}

TEST(Times, AreComputedAsInNumpy) {
  const Column moments = times({"2013-06-01", "NaT", "2013-06-03T12:00"});
  const Column hours = times({"PT1H", "PT2H", "NaT"});
  const Column ints = numbers(ElementType::Int32, {2, -3, kNaN});
  const ColumnOperand day{texts({"2013-06-02"}), true, true};
  const ColumnOperand hour{texts({"PT1H"}), true, true};
  const auto all = [](const Column& column) { return ColumnOperand{column}; };
  const auto weak = [](double number) { return ColumnOperand{doubles({number}), true, true}; };
  const std::tuple<const char*, std::vector<ColumnOperand>, std::vector<std::string>> cases[] = {
      {"minus", {all(moments), day}, {"-P1D", "NaT", "P1DT12H"}},
      {"plus", {all(hours), all(moments)}, {"2013-06-01T01:00:00", "NaT", "NaT"}},
      {"minus", {all(moments), hour}, {"2013-05-31T23:00:00", "NaT", "2013-06-03T11:00:00"}},
      {"plus", {all(hours), hour}, {"PT2H", "PT3H", "NaT"}},
      {"times", {all(ints), all(hours)}, {"PT2H", "-PT6H", "NaT"}},
      {"times", {all(hours), weak(0.5)}, {"PT30M", "PT1H", "NaT"}},
      {"rdivide", {all(hours), weak(-7)}, {"-PT8M34.285714S", "-PT17M8.571428S", "NaT"}},
      {"rdivide", {all(hours), weak(0)}, {"NaT", "NaT", "NaT"}},
      {"rdivide", {all(hours), hour}, {"1", "2", "missing"}},
      {"uminus", {all(hours)}, {"-PT1H", "-PT2H", "NaT"}},
      {"maximum", {all(moments), day}, {"2013-06-02T00:00:00", "NaT", "2013-06-03T12:00:00"}},
      {"lt", {all(moments), day}, {"1", "0", "0"}},
      {"ne", {all(moments), all(moments)}, {"0", "0", "0"}},
      {"differs", {all(moments), all(moments)}, {"0", "1", "0"}},
      {"ge", {hour, all(hours)}, {"1", "0", "0"}},
      {"ismissing", {all(moments)}, {"0", "1", "0"}},
      {"isfinite", {all(hours)}, {"1", "1", "0"}},
      {"where",
       {all(logicals({0, 1, 1})), day, all(moments)},
       {"2013-06-01T00:00:00", "2013-06-02T00:00:00", "2013-06-02T00:00:00"}},
      {"where",
       {all(numbers(ElementType::Logical, {0, 1, kNaN})), hour, all(hours)},
       {"PT1H", "PT1H", "NaT"}},
  };
  for (const auto& [name, inputs, expected] : cases) {
    const ElementFunction& function = *findElementFunction(name);
    const Column result = evaluate(function, inputs, 3);
    EXPECT_EQ(shown(result), expected) << name;
    EXPECT_FALSE(result.hasNulls()) << name;
  }
}

TEST(Times, MeetNoOtherTypes) {
  const ColumnOperand moments{times({"2013-06-01"})};
  const ColumnOperand hours{times({"PT1H"})};
  const ColumnOperand one{doubles({1}), true, true};
  const ColumnOperand word{texts({"1 June"}), true, true};
  const ColumnOperand column{texts({"2013-06-01"})};
  const std::tuple<const char*, std::vector<ColumnOperand>, const char*> cases[] = {
      {"plus", {moments, moments}, "BadTypes"}, {"lt", {moments, hours}, "BadTypes"},
      {"minus", {hours, moments}, "BadTypes"},  {"lt", {moments, one}, "BadTypes"},
      {"plus", {moments, one}, "BadTypes"},     {"eq", {moments, column}, "BadTypes"},
      {"times", {hours, hours}, "BadTypes"},    {"sqrt", {hours}, "BadTypes"},
      {"uminus", {moments}, "BadTypes"},        {"and", {hours, hours}, "BadTypes"},
      {"lt", {moments, word}, "BadTime"},
  };
  for (const auto& [name, inputs, id] : cases) {
    const auto error = stepErrorOf([&] { evaluate(*findElementFunction(name), inputs, 1); });
    EXPECT_EQ(error.id(), std::string("KALVEX:function:") + id) << name;
  }
}

TEST(Times, AreAggregatedWithoutMissingOnes) {
  using enum AggregateKind;
  const Column moments = times({"2013-06-01", "NaT", "1969-06-03"});
  const Column durations = times({"PT1H", "NaT", "PT2H", "PT0.000002S"});
  const Column none = times({"NaT", "NaT"});
  const auto answer = [](AggregateKind kind, const Column& column, MissingRule rule) {
    AggregateState state(kind, rule);
    state.update(column, RowOrdinals(0, column.rows()));
    const std::string bytes = state.finish().toBytes();
    return shown(combinePartials(kind, std::vector{AggregatePartial::fromBytes(bytes)})).front();
  };
  const std::tuple<AggregateKind, Column, const char*, const char*> cases[] = {
      {Min, moments, "1969-06-03T00:00:00", "NaT"},
      {Max, moments, "2013-06-01T00:00:00", "NaT"},
      {Count, moments, "2", "2"},
      {Sum, durations, "PT3H0.000002S", "NaT"},
      {Mean, durations, "PT1H", "NaT"},
      {Min, none, "NaT", "NaT"},
      {Mean, times({"NaT", "P1D", "NaT"}), "P1D", "NaT"},
  };
  for (const auto& [kind, column, skipped, propagated] : cases) {
    EXPECT_EQ(answer(kind, column, MissingRule::Skip), skipped);
    EXPECT_EQ(answer(kind, column, MissingRule::Propagate), propagated);
  }
  for (const AggregateKind kind : {Sum, Mean, Std, Any}) {
    EXPECT_EQ(stepErrorOf([&] { aggregateType(kind, ElementType::DateTime); }).id(),
              "KALVEX:function:BadTypes");
  }
}

TEST(Times, AreInferredAndReadFromCsv) {
  const kv::test::TempFolder folder;
  const std::string path = folder.write("t.csv",
                                        "when,zoned,mixed,length,number\n"
                                        "2013-06-01,2013-06-01T05:15:00Z,2013-06-01,PT1H,1\n"
                                        "NA,\"2013-06-01 05:15:00+02:00\",soon,,\n"
                                        " 2013-06-01T05:15:00.25 ,,2013-06-01,-P1D,2013\n");
  const auto source = openCsv({path}, {{"length", "duration"}});
  const ColumnInfo columns[] = {
      {"when", ElementType::DateTime},
      {.name = "zoned", .type = ElementType::DateTime, .fileType = "text with offsets from UTC"},
      {"mixed", ElementType::String},
      {"length", ElementType::Duration},
      {"number", ElementType::Double}};
  EXPECT_THAT(source->schema(), testing::ElementsAreArray(columns));
  const Chunk chunk = source->preview(3);
  EXPECT_THAT(shown(chunk.columns[0]),
              ElementsAre("2013-06-01T00:00:00", "NaT", "2013-06-01T05:15:00.25"));
  EXPECT_THAT(shown(chunk.columns[1]),
              ElementsAre("2013-06-01T05:15:00", "2013-06-01T03:15:00", "NaT"));
  EXPECT_THAT(shown(chunk.columns[3]), ElementsAre("PT1H", "NaT", "-P1D"));
  const auto error = stepErrorOf([&] {
    test::allValues<std::int64_t>(*openCsv({path}, {{"mixed", "datetime"}}), "mixed");
  });
  EXPECT_EQ(error.id(), "KALVEX:datastore:BadField");
  EXPECT_THAT(error.what(), HasSubstr("row 2 (line 3), column 'mixed': \"soon\" isn't a value of "
                                      "type datetime"));
}

}  // namespace
}  // namespace kv::runtime
