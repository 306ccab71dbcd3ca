#include <gmock/gmock.h>

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "column/ExecutionContext.h"
#include "column/chunkBytes.h"
#include "column/concatenate.h"
#include "exchange/Scratch.h"
#include "kv/errors/StepError.h"
#include "operator/operators.h"
#include "runtime/RuntimeSession.h"
#include "runtime/makeColumn.h"
#include "values/placesValues.h"

// Groups against a plain reference: a std::map from keys to the values of their rows. Values are
// small whole numbers, so that sums are exact in any order. A text is the three digits of a number.

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;

constexpr double kTextOffset = 100;

struct MissingLast {
  bool operator()(const std::vector<double>& a, const std::vector<double>& b) const {
    return std::ranges::lexicographical_compare(
        a, b, [](double x, double y) { return isMissing(y) ? !isMissing(x) : x < y; });
  }
};

using Reference = std::map<std::vector<double>, std::vector<double>, MissingLast>;

Column columnFor(ElementType type, const std::vector<double>& values) {
  if (type != ElementType::String) {
    return numbers(type, values);
  }
  std::vector<std::optional<std::string>> cells;
  for (const double value : values) {
    cells.push_back(isMissing(value)
                        ? std::nullopt
                        : std::optional(fmt::format("{:03}", int(value + kTextOffset))));
  }
  return texts(cells);
}

std::vector<double> valuesOf(const Column& column) {
  if (column.type() != ElementType::String) {
    return numbersOf(column);
  }
  std::vector<double> values;
  for (const auto& text : textsOf(column)) {
    values.push_back(text ? std::stod(*text) - kTextOffset : kNaN);
  }
  return values;
}

/// What a function gives for the values of a group, by its definition.
double expected(std::string_view name, MissingRule rule, const std::vector<double>& rows) {
  std::vector<double> used;
  std::ranges::copy_if(rows, std::back_inserter(used), [](double v) { return !isMissing(v); });
  const auto n = static_cast<double>(used.size());
  double sum = 0;
  double squares = 0;
  for (const double value : used) {
    sum += value;
  }
  for (const double value : used) {
    squares += (value - sum / n) * (value - sum / n);
  }
  if (name == "size" || name == "count") {
    return name == "size" ? static_cast<double>(rows.size()) : n;
  }
  const bool isEnd = name == "first" || name == "last";
  if (rule == MissingRule::Propagate && isEnd) {
    return name == "first" ? rows.front() : rows.back();
  }
  if (rule == MissingRule::Propagate && used.size() < rows.size()) {
    return kNaN;
  }
  if (name == "sum" || name == "any" || name == "all") {
    return name == "sum" ? sum : name == "any" ? double(sum > 0) : double(sum == n);
  }
  if (name.starts_with("var") || name.starts_with("std")) {
    const double lost = name.ends_with("p") ? 0 : 1;
    const double variance = n > lost ? squares / (n - lost) : kNaN;
    return name.starts_with("var") ? variance : std::sqrt(variance);
  }
  if (used.empty()) {
    return kNaN;
  }
  return name == "mean"    ? sum / n
         : name == "min"   ? std::ranges::min(used)
         : name == "max"   ? std::ranges::max(used)
         : name == "first" ? used.front()
                           : used.back();
}

/// Random rows, some keys and values missing, and what a group-by of them gives.
class Rows {
 public:
  Rows(unsigned seed, std::vector<ElementType> keys, ElementType value)
      : random_(seed), keyTypes_(std::move(keys)), valueType_(value) {
    const int rows = std::uniform_int_distribution(0, 300)(random_);
    keys_.resize(keyTypes_.size());
    for (int row = 0; row < rows; ++row) {
      std::vector<double> key;
      for (std::size_t i = 0; i < keys_.size(); ++i) {
        keys_[i].push_back(cell(keyTypes_[i], 3));
        key.push_back(keys_[i].back());
      }
      values_.push_back(cell(valueType_, 50));
      reference_[key].push_back(values_.back());
    }
  }

  const Reference& reference() const { return reference_; }

  /// The answers of an operator, fed with chunks and partitions of random sizes.
  std::vector<Chunk> run(const Operator& groups) {
    const auto& op = *groups.as<SinkOperator>();
    UserFunctions functions;
    const auto merge = op.startMerge({0, "groups", functions});
    Chunk keys{.ordinals = RowOrdinals(0, std::ssize(values_))};
    keys.names = std::make_shared<const std::vector<std::string>>(keys_.size(), "key");
    for (std::size_t i = 0; i < keys_.size(); ++i) {
      keys.columns.push_back(columnFor(keyTypes_[i], keys_[i]));
    }
    Chunk value{.ordinals = keys.ordinals, .columns = {columnFor(valueType_, values_)}};
    for (std::int64_t first = 0; first < keys.rows() || first == 0;) {
      OutputTypes types;
      const auto unit = op.start({0, "groups", 2, functions, types});
      for (int chunks = std::uniform_int_distribution(0, 3)(random_); chunks >= 0; --chunks) {
        const std::int64_t left = keys.rows() - first;
        const auto count =
            std::min(left, std::uniform_int_distribution<std::int64_t>(0, 40)(random_));
        const Chunk part = slice(keys, first, count);
        const Chunk partValue = slice(value, first, count);
        const StepInput inputs[] = {{.rows = &part}, {.rows = &partValue}};
        unit->process({"groups", true, inputs});
        first += count;
      }
      merge->add(unit->finish());
      if (keys.rows() == 0) {
        break;
      }
    }
    return merge->finish().arrays;
  }

 private:
  double cell(ElementType type, int most) {
    if (std::uniform_int_distribution(0, 4)(random_) == 0) {
      return type == ElementType::Logical && most > 3 ? 1 : kNaN;
    }
    const bool isUnsigned = isInteger(type) && !isSigned(type);
    if (type == ElementType::Logical) {
      return std::uniform_int_distribution(0, 1)(random_);
    }
    const int whole = std::uniform_int_distribution(isUnsigned ? 0 : -most, most)(random_);
    const bool isNegativeZero = whole == 0 && std::uniform_int_distribution(0, 1)(random_) == 1;
    return isNegativeZero && isFloating(type) ? -0.0 : whole;
  }

  std::mt19937 random_;
  std::vector<ElementType> keyTypes_;
  ElementType valueType_;
  std::vector<std::vector<double>> keys_;
  std::vector<double> values_;
  Reference reference_;
};

std::vector<GroupedValue> functionsFor(ElementType type) {
  std::vector<GroupedValue> values;
  for (const GroupFunction& function : groupFunctions()) {
    if (function.type(type)) {
      values.push_back({&function, MissingRule::Skip, 0});
      values.push_back({&function, MissingRule::Propagate, 0});
    }
  }
  return values;
}

std::string bytesOf(const std::vector<Chunk>& arrays) {
  ByteWriter bytes;
  for (const Chunk& array : arrays) {
    writeChunk(array, bytes);
  }
  return bytes.take();
}

void check(Rows rows, ElementType valueType, bool spills) {
  const std::vector<GroupedValue> functions = functionsFor(valueType);
  Rows again = rows;
  const std::vector<Chunk> answers = rows.run(*makeGroups(functions));
  if (spills) {
    const CancellationToken never;
    TempFolder folder;
    Scratch scratch(folder.path(), INT64_MAX, true, never);
    const ExecutionContext context{
        .pool = currentPool(), .cancellation = never, .scratch = &scratch};
    const ContextScope scope(context);
    EXPECT_EQ(bytesOf(again.run(*makeGroups(functions))), bytesOf(answers)) << "spilled";
    EXPECT_EQ(scratch.spilledBytes() > 0, !rows.reference().empty());
  }
  ASSERT_EQ(answers.front().rows(), std::ssize(rows.reference()));
  if (rows.reference().empty()) {
    return;
  }
  for (std::size_t i = 0; i < functions.size(); ++i) {
    const auto& [function, rule, input] = functions[i];
    const Column& column = answers[i + 1].columns.front();
    EXPECT_EQ(column.type(), function->type(valueType));
    const std::vector<double> found = valuesOf(column);
    std::size_t group = 0;
    for (const auto& [key, values] : rows.reference()) {
      SCOPED_TRACE(fmt::format("{} {} of group {}", function->name, int(rule), group));
      for (std::size_t part = 0; part < key.size() && i == 0; ++part) {
        EXPECT_TRUE(isSame(valuesOf(answers[0].columns[part])[group], key[part] + 0.0));
      }
      double answer = expected(function->name, rule, values);
      if (column.type() == ElementType::Duration) {
        answer = std::trunc(answer);
      }
      EXPECT_TRUE(isMissing(answer) ? isMissing(found[group])
                                    : std::abs(found[group] - answer) <= 1e-12 * std::abs(answer))
          << found[group] << " instead of " << answer;
      ++group;
    }
  }
}

TEST(Groups, AreThoseOfAPlainReference) {
  unsigned seed = 0;
  for (const ElementType key : allElementTypes()) {
    for (const ElementType value :
         {ElementType::Double, ElementType::Int16, ElementType::String, ElementType::Logical,
          ElementType::UInt64, ElementType::Duration}) {
      SCOPED_TRACE(fmt::format("{} by {}", elementTypeName(value), elementTypeName(key)));
      check(Rows(++seed, {key}, value), value, false);
      check(Rows(++seed, {ElementType::DateTime, key, ElementType::Double}, value), value,
            value == ElementType::Double || value == ElementType::String);
    }
  }
}

TEST(Groups, AFullScratchFolderIsAnErrorWithFolderAndBytes) {
  const CancellationToken never;
  TempFolder folder;
  Scratch scratch(folder.path(), 3000, true, never);
  const ExecutionContext context{.pool = currentPool(), .cancellation = never, .scratch = &scratch};
  const ContextScope scope(context);
  try {
    Rows(7, {ElementType::Double}, ElementType::Double)
        .run(*makeGroups(functionsFor(ElementType::Double)));
    FAIL() << "3000 bytes were enough";
  } catch (const errors::StepError& error) {
    EXPECT_EQ(error.id(), "KALVEX:spill:NoSpace");
    EXPECT_EQ(error.arguments().front(), folder.path());
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

class ByKey : public RuntimeSession {
 protected:
  static std::vector<Value> byKey(std::string_view function, const Value& keys, const Value& x) {
    const Value handle = host::makeFunctionHandle("kv.aggregate." + std::string(function));
    return host::callMany("aggregatebykeyfun", 2,
                          std::vector{handle.get(), handle.get(), keys.get(), x.get()});
  }

  Value t = table({"k,x\n2,10\n,20\n1,30\n", "k,x\n2,40\n1,\n", "k,x\n"});
  Value k = column(t, "k");
  Value x = column(t, "x");
};

TEST_F(ByKey, ResultsAreRowsOfTheirOwn) {
  const auto sums = byKey("sum", k, x);
  const auto counts = byKey("count", k, x);
  EXPECT_THAT(gather(element("plus", sums[1], counts[1])), ElementsAre(31, 52, 21));
  EXPECT_EQ(fact("passes"), 1);
  EXPECT_THAT(gather(filter(element("gt", sums[1], 25), counts[1])), ElementsAre(1, 2));
  EXPECT_THAT(gather(aggregate("max", element("minus", sums[1], aggregate("mean", sums[1])))),
              ElementsAre(50 - 100.0 / 3));
  const std::vector<double> keys = gather(sums[0]);
  EXPECT_THAT(std::vector(keys.begin(), keys.end() - 1), ElementsAre(1, 2));
  EXPECT_TRUE(isMissing(keys.back()));
  EXPECT_THAT(gather(element("plus", sums[1], byKey("max", k, x)[1])), ElementsAre(60, 90, 40))
      << "one of them was gathered before";
  const auto others = byKey("sum", element("plus", k, 1), x);
  for (const Value* other : std::array<const Value*, 2>{&x, &others[1]}) {
    const auto error = errorOf([&] { gather(element("plus", sums[1], *other)); });
    EXPECT_THAT(error.identifier, testing::StartsWith("KALVEX:")) << error.message;
  }
}

TEST_F(ByKey, WhatWasSpilledIsCountedAndLeavesNothing) {
  const TempFolder scratch;
  const Value path = host::makeString(scratch.path());
  host::callMany("kv.setScratch", 0, std::vector{path.get()});
  const auto sums = byKey("sum", k, x);
  const std::vector<double> expected = gather(sums[1]);
  setenv("KV_SPILL", "always", 1);
  EXPECT_EQ(gather(byKey("sum", k, element("plus", x, 0))[1]), expected);
  EXPECT_GT(fact("spilledBytes"), 0);
  EXPECT_GE(fact("spillLevels"), 1);
  unsetenv("KV_SPILL");
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
  const Value none = host::makeString(scratch.path() + "/none");
  EXPECT_EQ(
      errorOf([&] { host::callMany("kv.setScratch", 0, std::vector{none.get()}); }).identifier,
      "KALVEX:spill:Failed");
}

TEST_F(ByKey, RowsGoToThePartitionsOfAnIndex) {
  const Value metadata =
      host::call("kalvex.bigdata.internal.PartitionMetadata", {host::makeDouble(3).get()});
  const auto moved = [&](const Value& index) {
    return host::callMany("repartition", 2,
                          std::vector{metadata.get(), index.get(), x.get(), index.get()});
  };
  const Value index = element("plus", element("gt", k, 1), 1);
  const auto rows = moved(index);
  EXPECT_THAT(gather(filter(element("gt", rows[0], 0), rows[0])), ElementsAre(20, 30, 10, 40));
  EXPECT_THAT(gather(rows[1]), ElementsAre(1, 1, 1, 2, 2));
  const Value places = host::call("hGetMetadata", {rows[1].get()});
  EXPECT_EQ(placesOf(places.get(), 5)->cut->partitionRows, (std::vector<std::int64_t>{3, 2, 0}));
  const auto error = errorOf([&] { gather(moved(element("minus", index, 1))[0]); });
  EXPECT_EQ(error.identifier, "KALVEX:array:PartitionIndex");
  EXPECT_THAT(error.arguments, ElementsAre("2", "0", "3"));
}

TEST_F(ByKey, UsersFunctionsGetTheRowsOfOneKeyInAFrame) {
  std::vector<std::vector<double>> given;
  const auto sums = [&](const host::Call& call) {
    const auto* data = static_cast<const double*>(kxGetData(call.in(0)));
    given.emplace_back(data, data + kxGetNumberOfElements(call.in(0)));
    call.out(0, host::makeDouble(std::accumulate(given.back().begin(), given.back().end(), 0.0)));
  };
  const Value both = host::makeFunctionHandle("sums", sums);
  const Value frames = host::call("resizechunks", {x.get(), host::makeDouble(2).get()});
  const auto call = [&](const Value& first, const Value& second) {
    return host::callMany("aggregatebykeyfun", 2,
                          std::vector{first.get(), second.get(), k.get(), frames.get()});
  };
  const auto results = call(both, both);
  EXPECT_THAT(gather(filter(element("gt", results[0], 0), results[1])),
              ElementsAre(testing::NanSensitiveDoubleEq(kNaN), 50));
  given.clear();
  const Value first = host::makeFunctionHandle("noted", sums);
  const Value last = host::makeFunctionHandle(
      "passed", [](const host::Call& c) { c.out(0, matrix::sharedCopy(c.in(0))); });
  const auto error = errorOf([&] { gather(call(first, last)[1]); });
  EXPECT_EQ(error.identifier, "KALVEX:array:WrongRowCount") << "2 has rows in two partitions";
  EXPECT_THAT(error.arguments, ElementsAre("noted by key", "1", "2"));
  EXPECT_EQ(given.size(), 5u) << "once for each key in a frame";
}

}  // namespace
}  // namespace kv::runtime::test
