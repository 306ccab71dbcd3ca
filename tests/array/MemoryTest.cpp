#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "array/ArrayTest.h"

namespace kv::test {

namespace {

class MemoryTest : public ArrayTest {
 protected:
  /// The rows of `array`, compared with those of a plain vector.
  static void expectNumbers(const Array& array, const std::vector<double>& expected) {
    EXPECT_EQ(numbers(array), expected);
  }
};

/// All ways to cut `rows` rows into at most `most` partitions, empty ones included.
std::vector<std::vector<std::int64_t>> allCuts(std::int64_t rows, int most) {
  std::vector<std::vector<std::int64_t>> cuts;
  std::vector<std::int64_t> sizes;
  const std::function<void(std::int64_t)> extend = [&](std::int64_t left) {
    if (left == 0 && !sizes.empty()) {
      cuts.push_back(sizes);
    }
    for (std::int64_t size = 0; size <= left && std::ssize(sizes) < most; ++size) {
      sizes.push_back(size);
      extend(left - size);
      sizes.pop_back();
    }
  };
  extend(rows);
  return cuts;
}

TEST_F(MemoryTest, ArraysOfOneLengthAreCombinedInEveryPairOfCuts) {
  const std::vector<double> x{1, 2, 3, 4};
  const std::vector<double> y{10, 20, 30, 40};
  const Array doubled = session.arange(0, 8, 2);
  const auto cuts = allCuts(4, 3);
  EXPECT_GT(cuts.size(), 15U);
  for (std::size_t i = 0; i < cuts.size() * cuts.size(); i += 3) {
    session.setThreads(1 + static_cast<int>(i % 3));
    const Array a = session.fromMemory(x, {.sizes = cuts[i / cuts.size()]});
    const Array b = session.fromMemory(y, {.sizes = cuts[i % cuts.size()]});
    const Array kept = filter(a, b > 15);  // gathered first, and then combined in another cut
    const Gathered all = session.gather(
        std::array{a + b + doubled, sum(a), kept,
                   map([](auto in) { return std::vector<double>(in[0].begin(), in[0].end()); },
                       std::array{b - a})});
    EXPECT_EQ(all.values[0].data(), Value::Data(Value::Numbers{11, 24, 37, 50}));
    EXPECT_EQ(all.values[1].number(), 10);
    EXPECT_EQ(all.values[2].data(), Value::Data(Value::Numbers{2, 3, 4}));
    EXPECT_EQ(all.values[3].data(), Value::Data(Value::Numbers{9, 18, 27, 36}));
    expectNumbers(kept * 100 + filter(b + doubled, b > 15), {222, 334, 446});
    expectNumbers(filter(kept, filter(doubled, b > 15) > 2), {3, 4});
  }
}

TEST_F(MemoryTest, TheAnswersAreThoseOfTheSameRowsFromAFile) {
  constexpr std::size_t kRows = 70'000;  // several chunks and blocks of a sum
  std::vector<double> x(kRows);
  std::vector<std::int64_t> n(kRows);
  std::vector<std::optional<std::string>> word(kRows);
  std::string csv = "x,n,word\n";
  for (std::size_t row = 0; row < kRows; ++row) {
    x[row] = row % 97 == 0 ? std::numeric_limits<double>::quiet_NaN()
                           : std::sin(static_cast<double>(row)) * 1e3;
    n[row] = static_cast<std::int64_t>(row * row % 1009);
    word[row] = row % 5 == 0 ? std::nullopt : std::optional("w" + std::to_string(row % 7));
    std::array<char, 40> digits{};
    std::snprintf(digits.data(), digits.size(), "%.17g", x[row]);
    csv += (row % 97 == 0 ? "" : std::string(digits.data())) + "," + std::to_string(n[row]) + "," +
           word[row].value_or("") + "\n";
  }
  const auto answers = [&](const Table& t) {
    const Array a = t.column("x");
    const Array b = t.column("n");
    const Array chosen = t.column("word") == "w3";
    return session.gather(std::array{sum(a), mean(a * b), std(filter(a, chosen)), min(b),
                                     count(filter(t.column("word"), b > 500)),
                                     filter(t.column("word"), b == 1008), filter(a / b, chosen)});
  };
  const Gathered fromFile = answers(read(csv, {.types = {{"n", "int64"}}}));
  const Table table = session.fromColumns({{"x", x}, {"n", n}, {"word", word}});
  for (const int threads : {1, 3}) {
    session.setThreads(threads);
    const Gathered fromMemory = answers(table);
    EXPECT_EQ(fromMemory.facts.rows, fromFile.facts.rows);
    for (std::size_t i = 0; i < fromFile.values.size(); ++i) {
      const Value::Data& expected = fromFile.values[i].data();
      if (const auto* values = std::get_if<Value::Numbers>(&expected)) {
        const auto& actual = std::get<Value::Numbers>(fromMemory.values[i].data());
        ASSERT_EQ(actual.size(), values->size());
        EXPECT_EQ(std::memcmp(actual.data(), values->data(), actual.size() * sizeof(double)), 0)
            << i;
      } else {
        EXPECT_EQ(fromMemory.values[i].data(), expected) << i;
      }
    }
  }
}

template <Element T>
void expectType(Session& session, std::vector<T> values) {
  const auto expected = Value::Data([&]() -> Value::Data {
    if constexpr (std::floating_point<T>) {
      return Value::Numbers(values.begin(), values.end());
    } else if constexpr (std::same_as<T, bool>) {
      return Value::Logicals(values.begin(), values.end());
    } else if constexpr (std::is_signed_v<T>) {
      return Value::Integers(values.begin(), values.end());
    } else {
      return Value::Unsigneds(values.begin(), values.end());
    }
  }());
  // The same values next to each other, and in every second place of a row-major array.
  const auto kept = std::make_shared<std::unique_ptr<T[]>>(new T[3 * values.size()]());
  T* const first = kept->get();
  Memory apart;
  apart.type = typeName<T>();
  apart.data = first + values.size();
  apart.shape = {std::ssize(values)};
  apart.strides = {2 * static_cast<std::int64_t>(sizeof(T))};
  apart.owner = kept;
  for (std::size_t i = 0; i < values.size(); ++i) {
    first[values.size() + 2 * i] = values[i];
  }
  EXPECT_EQ(session.fromMemory(apart).gather().data(), expected) << typeName<T>();
  for (std::size_t i = 0; i < values.size(); ++i) {
    first[i] = values[i];
  }
  const Array array = session.fromMemory(Memory(std::span<const T>(first, values.size()), kept));
  EXPECT_EQ(array.type(), typeName<T>());
  EXPECT_EQ(array.gather().data(), expected) << typeName<T>();
}

TEST_F(MemoryTest, EveryTypeIsReadInPlaceOrByStride) {
  expectType<double>(session, {0.5, -1, 1e300});
  expectType<float>(session, {0.5F, -1, 3});
  expectType<std::int8_t>(session, {-128, 127, 0});
  expectType<std::uint8_t>(session, {0, 255, 3});
  expectType<std::int16_t>(session, {-32768, 2, 32767});
  expectType<std::uint16_t>(session, {65535, 2, 3});
  expectType<std::int32_t>(session, {std::numeric_limits<std::int32_t>::min(), 2, 3});
  expectType<std::uint32_t>(session, {4'000'000'000U, 2, 3});
  expectType<std::int64_t>(session, {std::numeric_limits<std::int64_t>::min(), 2, 3});
  expectType<std::uint64_t>(session, {std::numeric_limits<std::uint64_t>::max(), 2, 3});
  expectType<bool>(session, {true, false, true});
  expectNumbers(session.fromMemory(std::vector<double>{}), {});
}

TEST_F(MemoryTest, MemoryIsReleasedWithTheLastArrayAndGatheredValuesDontNeedIt) {
  auto owner = std::make_shared<std::vector<double>>(std::vector<double>{1, 2, 3});
  const std::weak_ptr<std::vector<double>> watch = owner;
  std::optional<Array> array = session.fromMemory(Memory(std::span<const double>(*owner), owner));
  std::optional<Array> derived = *array + 1;
  std::vector<double> own{7, 8};
  const Array gathered = session.fromMemory(own);
  expectNumbers(gathered, {7, 8});
  own = {0, 0};
  expectNumbers(gathered, {7, 8});
  const Value values = (*array * 2).gather();
  owner.reset();
  array.reset();
  session.collect();
  EXPECT_FALSE(watch.expired());
  derived.reset();
  session.collect();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(values.number(2), 6);
}

TEST_F(MemoryTest, GeneratedArraysAreThoseOfNumPy) {
  expectNumbers(session.arange(2, 11, 3), {2, 5, 8});
  expectNumbers(session.arange(5, 0, -2), {5, 3, 1});
  expectNumbers(session.arange(5, 0), {});
  expectNumbers(session.arange(0.5, 2, 0.5), {0.5, 1, 1.5});
  EXPECT_EQ(session.arange(0, 3).type(), "int64");
  EXPECT_EQ(session.arange(0, 3, 1, {.type = "uint8"}).type(), "uint8");
  const double step = (0.1 + 0.1) - 0.1;  // of numpy.arange(0.1, 1, 0.1)
  expectNumbers(session.arange(0.1, 0.45, 0.1), {0.1, 0.1 + 0.1, 0.1 + 2 * step, 0.1 + 3 * step});
  expectNumbers(session.linspace(0, 1, 4), {0, 1.0 / 3, 2 * (1.0 / 3), 1});
  expectNumbers(session.linspace(0, 1, 4, false), {0, 0.25, 0.5, 0.75});
  expectNumbers(session.linspace(3, 5, 1), {3});
  expectNumbers(session.zeros(2) + session.ones(2, {.type = "int8"}), {1, 1});
  EXPECT_EQ(session.full(2, "abc").gather().text(1), "abc");
  EXPECT_EQ(session.full(3, true).gather().data(), Value::Data(Value::Logicals(3, true)));
  EXPECT_EQ(session.full(1, 300.0, {.type = "int16"}).gather().data(),
            Value::Data(Value::Integers{300}));
  // They take no memory: of 10^12 rows only the first partitions are ever made.
  const Array many = session.arange(std::int64_t{0}, std::int64_t{1'000'000'000'000});
  EXPECT_EQ(many.rows(), 1'000'000'000'000);
  EXPECT_FALSE(session.explain(std::array{sum(many)}).empty());
}

TEST_F(MemoryTest, RandomNumbersDependOnSeedCallPartitionAndRow) {
  constexpr std::int64_t kRows = 100'000;
  const GeneratedOptions cut{.partitions = {.rows = 30'000}};
  const auto draw = [&](Session& from) {
    from.seed(11);
    return std::vector{from.random(kRows, cut), from.random(kRows, cut),
                       from.randomNormal(kRows, cut), from.randomIntegers(kRows, -3, 4, cut)};
  };
  Session other;
  const std::vector<Array> arrays = draw(session);
  session.setThreads(3);
  const Gathered all = session.gather(arrays);
  EXPECT_EQ(all.values[0].data(), draw(other)[0].gather().data());
  EXPECT_NE(all.values[0].data(), all.values[1].data());
  // What it is combined with, in whatever cut, makes no difference.
  const Array zeros = session.zeros(kRows, {.partitions = {.sizes = {1, 41'234, 0, 58'765}}});
  EXPECT_EQ((arrays[2] + zeros).gather().data(), all.values[2].data());
  const auto moments = [&](const Array& array) {
    return std::pair(number(mean(array)), number(std(array)));
  };
  EXPECT_NEAR(moments(arrays[0]).first, 0.5, 0.005);
  EXPECT_NEAR(moments(arrays[0]).second, std::sqrt(1 / 12.0), 0.005);
  EXPECT_NEAR(moments(arrays[2]).first, 0, 0.02);
  EXPECT_NEAR(moments(arrays[2]).second, 1, 0.02);
  for (int value = -3; value < 4; ++value) {
    EXPECT_NEAR(number(mean(where(arrays[3] == value, 1.0, 0.0))), 1 / 7.0, 0.006) << value;
  }
}

TEST_F(MemoryTest, LengthsAreKnownAndCheckedWhereTheExpressionIsWritten) {
  const Array four = session.arange(0, 4);
  EXPECT_EQ(four.rows(), 4);
  EXPECT_EQ((four * 2 + mean(four)).rows(), 4);
  EXPECT_EQ(sum(four).rows(), 1);
  EXPECT_EQ(session.constant(3).rows(), 1);
  EXPECT_EQ(filter(four, four > 1).rows(), std::nullopt);
  EXPECT_EQ(read("x\n1\n2\n").column("x").rows(), std::nullopt);
  const Error error = errorOf([&] { four + session.zeros(5); });
  EXPECT_EQ(error.identifier(), "KALVEX:array:DifferentSources");
  EXPECT_NE(error.arguments().at(1).find("5 rows of 0"), std::string::npos);
  ASSERT_FALSE(error.stack().empty());
  EXPECT_EQ(errorOf([&] { (four + read("x\n1\n2\n").column("x")).gather(); }).identifier(),
            "KALVEX:array:DifferentSources");
}

TEST_F(MemoryTest, WrongRequestsAreRefusedByName) {
  const std::vector<double> x{1, 2, 3};
  Memory flat(x);
  flat.shape = {3, 0};
  Memory strange(x);
  strange.type = "complex";
  struct Case {
    std::string_view id;
    std::function<void()> request;
  };
  const Case cases[] = {
      {"KALVEX:datastore:Partitions",
       [&] {
         session.fromMemory(x, {.sizes = {1, 1}});
       }},
      {"KALVEX:datastore:Partitions", [&] { session.fromMemory(x, {.sizes = {4}}); }},
      {"KALVEX:datastore:Partitions",
       [&] {
         session.fromMemory(x, {.sizes = {4, -1}});
       }},
      {"KALVEX:datastore:Partitions", [&] { session.fromMemory(x, {.rows = -1}); }},
      {"KALVEX:datastore:TooManyRows", [&] { session.zeros(-1); }},
      {"KALVEX:datastore:TooManyRows", [&] { session.arange(0.0, 1e300); }},
      {"KALVEX:datastore:ZeroStep", [&] { session.arange(0, 3, 0); }},
      {"KALVEX:datastore:OutOfRange", [&] { session.arange(0, 300, 1, {.type = "uint8"}); }},
      {"KALVEX:datastore:EmptyRange", [&] { session.randomIntegers(3, 4, 4); }},
      {"KALVEX:function:OutOfRange", [&] { session.full(3, 1.5, {.type = "int8"}); }},
      {"KALVEX:array:UnknownType", [&] { session.zeros(3, {.type = "float"}); }},
      {"KALVEX:array:UnknownType", [&] { session.fromMemory(strange); }},
      {"KALVEX:array:BadShape", [&] { session.fromMemory(flat); }},
      {"KALVEX:array:BadShape", [&] { session.zeros(3, {.trailing = {1 << 21}}); }},
      {"KALVEX:array:SameName",
       [&] {
         session.fromColumns({{"x", x}, {"x", x}});
       }},
      {"KALVEX:array:LengthsDiffer",
       [&] {
         session.fromColumns({{"x", x}, {"y", std::vector<float>{1}}});
       }},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(errorOf(each.request).identifier(), each.id);
  }
  expectNumbers(session.fromMemory(x), x);
}

TEST_F(MemoryTest, GeneratedArraysAreSavedAndMemoryIsRefused) {
  const std::string path = folder.path("saved.kv");
  session.seed(5);
  const Array generated = session.random(1000, {.partitions = {.rows = 300}}) +
                          session.linspace(0, 1, 1000) + session.arange(0, 1000) +
                          session.full(1000, 2, {.type = "int8"});
  session.save(path, std::array{NamedArray{"a", generated}});
  Session other;
  EXPECT_EQ(other.open(path, Trust::Yes).arrays.front().array.gather().data(),
            generated.gather().data());
  const std::vector<double> x{1, 2, 3};
  const Array borrowed = session.fromMemory(x) * 2;
  const std::string refused = folder.path("refused.kv");
  const Error error = errorOf([&] {
    session.save(refused, std::array{NamedArray{"b", borrowed}});
  });
  EXPECT_EQ(error.identifier(), "KALVEX:datastore:NotSaveable");
  EXPECT_EQ(error.arguments(), (std::vector<std::string>{"an array of 3 rows in memory"}));
  EXPECT_FALSE(std::filesystem::exists(refused));
  expectNumbers(borrowed, {2, 4, 6});
  session.save(refused, std::array{NamedArray{"b", borrowed}});
  expectNumbers(other.open(refused, Trust::Yes).arrays.front().array, {2, 4, 6});
}

}  // namespace

}  // namespace kv::test
