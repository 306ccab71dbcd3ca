#include "helpTexts.h"

#include <fmt/format.h>
#include <kv/array.h>

#include <string_view>

#include "formula/recordFormula.h"

namespace kv::shell {

namespace {

// Tried by the tests, in a folder with that file.
constexpr std::string_view kExamples = R"(Examples:
  kvbig query flights.csv 'mean(dep_delay)' 'late = mean(arr_delay > 60)'
  kvbig query flights.csv 'count(dep_delay)' --where 'origin == "JFK" & month <= 3'
  kvbig query flights.csv 'std(dep_delay - mean(dep_delay))'
  kvbig query 'flight*.csv' 'sum(distance)' --type distance=int64 --json
  kvbig query flights.csv 'mean(dep_delay)' --where 'rand() < 0.01' --seed 7
  kvbig query flights.csv 'max(dep_delay)' --explain
  kvbig query flights.csv --where 'arr_delay > 60' -o late.parquet
  kvbig query flights.csv --select 'origin, gain = dep_delay - arr_delay' -o gains --format csv
  kvbig explain flights.csv 'std(dep_delay - mean(dep_delay))' --dot
  kvbig save late.kv flights.csv 'late = mean(arr_delay > 60)'
  kvbig open late.kv
  kvbig open late.kv --trust --json
  kvbig open late.kv --trust --data 'flights.csv=flight*.csv'
  kvbig describe kalvex.bigdata.internal.lazyeval.Closure
)";

constexpr std::string_view kFormulas = R"(Expressions:
  x  `odd name`       columns; write odd names in backquotes
  60  1.5e3  "JFK"    numbers; texts in " or ', with \" \' \\ \n \r \t
  true  false         logicals
  "2013-06-01T05:15"  with a datetime, a moment; "PT1H30M" with a time, a duration
  x * 2  x * 2.0      of integers: 2 takes the type of x, 2.0 makes it double
  name = mean(x)      names the result
  |   &   !   == != < <= > >=   + -   * / %   unary -   ^
                      operators, those that bind least first
  Missing values are skipped by aggregates. A comparison with one is false; where integers or
  logicals are missing, as in Parquet files, it is missing, too.
  Put -- before an expression that starts with -, after all options: -- '-mean(x)'
)";

constexpr std::string_view kTypes = R"(Types of columns:
  CSV: double where all fields at the start of the first file are numbers, datetime where they are
  moments by ISO 8601, else string; or, by --type:
  logical double single int8 uint8 int16 uint16 int32 uint32 int64 uint64 string datetime duration
  datetime(%d.%m.%Y)  moments by a pattern of strptime, with %f for a fraction of a second
  Parquet: those of the file; its times of day and nested columns can't be read
)";

constexpr std::string_view kExits = R"(Exit codes:
  0 done   2 wrong usage or expression   3 input data   4 evaluation failed   130 interrupted
)";

std::string listed(std::string_view title, const std::vector<FunctionFacts>& functions) {
  std::string text = fmt::format("{}:\n", title);
  for (const FunctionFacts& function : functions) {
    text += fmt::format("  {:<10} {:<2}  {}\n", function.name, function.symbol, function.summary);
  }
  return text;
}

}  // namespace

std::string generalHelp() { return fmt::format("{}\n{}", kExamples, kExits); }

std::string queryHelp() {
  return fmt::format("{}\n{}\n{}\n{}\n{}\n{}", kFormulas, listed("Aggregates", aggregates()),
                     listed("Functions of each row", formula::rowFunctions()), kTypes, kExamples,
                     kExits);
}

}  // namespace kv::shell
