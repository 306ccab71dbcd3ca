#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "array/ArrayTest.h"

namespace kv::test {

namespace {

using testing::ElementsAre;
using Operations = ArrayTest;

constexpr std::string_view kSmall = "x,y,word\n1,4,a\n2,NA,b\n3,6,\n";

TEST_F(Operations, GoRowByRowOverArraysNumbersAndTexts) {
  const Table table = read(kSmall);
  const Array x = table.column("x");
  const Array y = table.column("y");

  EXPECT_THAT(numbers(x + 1), ElementsAre(2, 3, 4));
  EXPECT_THAT(numbers(10 - x * 2.5F), ElementsAre(7.5, 5, 2.5));
  EXPECT_THAT(numbers(-x / 2L), ElementsAre(-0.5, -1, -1.5));
  EXPECT_THAT(numbers(x % 2U), ElementsAre(1, 0, 1));
  EXPECT_THAT(numbers((x >= 2) & !(x == 3)), ElementsAre(0, 1, 0));
  EXPECT_THAT(numbers((y > 5) | isnan(y)), ElementsAre(0, 1, 1));
  EXPECT_THAT(numbers(table.column("word") != "a"), ElementsAre(0, 1, 0)) << "missing is false";
  EXPECT_THAT(numbers(kv::sqrt(kv::abs(x * x))), ElementsAre(1, 2, 3));
  EXPECT_THAT(numbers(where(isnan(y), 0, y - x)), ElementsAre(3, 0, 3));
}

TEST_F(Operations, AggregatesSkipMissingValuesOrPropagateThem) {
  const Array y = read(kSmall).column("y");

  EXPECT_EQ(number(mean(y)), 5);
  EXPECT_EQ(number(count(y)), 2);
  EXPECT_EQ(number(max(y) - min(y)), 2);
  EXPECT_EQ(number(sum(y)), 10);
  EXPECT_EQ(number(kv::std(y)), std::sqrt(number(var(y))));
  EXPECT_TRUE(std::isnan(number(mean(y, Missing::Propagate))));
  EXPECT_TRUE(std::isnan(number(max(y, Missing::Propagate))));
}

TEST_F(Operations, ValuesKeepTheirKind) {
  const Table table = read("n,u,b,t\n-9007199254740993,18446744073709551615,true,ü\n0,1,false,\n",
                           {{{"n", "int64"}, {"u", "uint64"}, {"b", "logical"}}});
  using I = Value::Integers;
  using U = Value::Unsigneds;

  EXPECT_EQ(std::get<I>(min(table.column("n")).gather().data()), I{-9007199254740993});
  EXPECT_EQ(std::get<U>(table.column("u").gather().data()),
            (U{std::numeric_limits<std::uint64_t>::max(), 1}));
  EXPECT_TRUE(table.column("b").gather().isLogical());
  const Value texts = table.column("t").gather();
  EXPECT_EQ(texts.text(0), "ü");
  EXPECT_EQ(texts.text(1), std::nullopt);
  EXPECT_EQ(errorOf([&] { texts.number(); }).identifier(), "KALVEX:array:NotANumber");
  EXPECT_THROW(texts.text(2), std::out_of_range);
  EXPECT_EQ(errorOf([&] { (void)session.constant(1).gather().text(); }).identifier(),
            "KALVEX:array:NotAText");
}

TEST_F(Operations, TypesAreKnownBeforeAnythingIsRead) {
  const Table table = read("x,n,word\n1,2,a\n", {{{"n", "int8"}}});

  EXPECT_EQ(table.column("x").type(), "double");
  EXPECT_EQ((table.column("n") * 2).type(), "int8");
  EXPECT_EQ((table.column("n") * 2.5).type(), "double");
  EXPECT_EQ((table.column("word") == "a").type(), "logical");
  EXPECT_EQ((table.column("n") * 2.0).type(), "double");
  EXPECT_EQ(count(table.column("word")).type(), "int64");
  EXPECT_EQ(sum(table.column("n")).type(), "int64");
  EXPECT_EQ(table.filter(table.column("x") > 0).column("n").type(), "int8");
}

TEST_F(Operations, InvalidOperationsAreRefusedWhereTheyAreWritten) {
  const Table table = read(kSmall);
  const Array x = table.column("x");
  const Array word = table.column("word");
  Session other;
  const Array stranger = other.constant(1);
  const std::vector<Operand> constants = {1, 2};

  EXPECT_EQ(errorOf([&] { word + 1; }).identifier(), "KALVEX:function:BadTypes");
  EXPECT_EQ(errorOf([&] { mean(word); }).identifier(), "KALVEX:function:BadTypes");
  EXPECT_EQ(errorOf([&] { kv::apply("plus", std::vector<Operand>{x}); }).identifier(),
            "KALVEX:function:BadArity");
  EXPECT_EQ(errorOf([&] { kv::apply("plus", constants); }).identifier(), "KALVEX:array:NoArray");
  EXPECT_EQ(errorOf([&] { kv::apply("nope", constants); }).arguments(),
            (std::vector<std::string>{"nope", "element function"}));
  EXPECT_EQ(errorOf([&] { aggregate("nope", x); }).identifier(), "KALVEX:array:UnknownFunction");
  const Error unknown = errorOf([&] { table.column("nope"); });
  EXPECT_EQ(unknown.identifier(), "KALVEX:array:UnknownColumn");
  EXPECT_THAT(unknown.what(), testing::HasSubstr("The columns are: x"));
  EXPECT_THAT(unknown.stack().front().file, testing::EndsWith("OperationsTest.cpp"));
  EXPECT_EQ(errorOf([&] { table.filter(x); }).identifier(), "KALVEX:array:NotLogical");
  EXPECT_EQ(errorOf([&] { filter(x, x); }).identifier(), "KALVEX:array:NotLogical");
  EXPECT_EQ(errorOf([&] { x + stranger; }).identifier(), "KALVEX:array:TwoSessions");
  EXPECT_EQ(errorOf([&] { x + ((1LL << 53) + 1); }).identifier(), "KALVEX:array:NotExact");
  EXPECT_EQ(number(sum(x)), 6) << "the session stays usable";
}

TEST_F(Operations, WrittenConstantsAdaptAndComputedValuesDont) {
  const Array n = read("n\n100\n50\n1\n", {{{"n", "int8"}}}).column("n");
  const Array three = count(n), written = session.constant(1) + 2;
  for (const bool isGathered : {false, true}) {
    EXPECT_EQ((n * written).type(), "int8") << isGathered;
    EXPECT_THAT(numbers(n * written), ElementsAre(44, -106, 3)) << isGathered;
    EXPECT_EQ((n * three).type(), "int64") << isGathered;
    EXPECT_EQ(std::get<Value::Integers>((n * three).gather().data()),
              (Value::Integers{300, 150, 3}));
    EXPECT_THAT(numbers(n < 12345678901234567), ElementsAre(1, 1, 1));
    session.gather(std::vector{n, three, written});
  }
  EXPECT_EQ(errorOf([&] { n + 300; }).identifier(), "KALVEX:function:OutOfRange");
  EXPECT_EQ(errorOf([&] {
              kv::apply("power", std::vector<Operand>{n, -1});
            }).identifier(),
            "KALVEX:function:NegativePower");
}

TEST_F(Operations, ResultsComputedFromTheExtremesOfNoRowsAreMissing) {
  const Table table = read("n,l\n7,true\n", {{{"n", "int8"}, {"l", "logical"}}});
  const Table none = table.filter(table.column("n") > 100);
  const Array n = table.column("n"), l = table.column("l");
  const Array least = min(none.column("n")), lowest = min(none.column("l"));
  for (const bool isGathered : {false, true}) {
    for (const Array& missing : {least, lowest, !lowest, lowest & true, least + 1, least == 0,
                                 n * least, l & lowest, lowest & (least > 3)}) {
      EXPECT_TRUE(std::isnan(number(missing))) << isGathered;
      EXPECT_EQ(number(count(missing)), 0) << isGathered;
      EXPECT_EQ(number(kv::isnan(missing)), 1) << isGathered;
    }
    EXPECT_EQ(number(l | lowest), 1) << isGathered;
    EXPECT_EQ(filter(n, l & !lowest).gather().rows(), 0U);
    session.gather(std::vector{least, lowest});
  }
  const std::string saved = folder.path("lowest.kv");
  session.save(saved, std::vector<NamedArray>{{"lowest", lowest}});
  EXPECT_TRUE(std::isnan(number(!session.open(saved, Trust::Yes).arrays[0].array)));
  const auto next = [](auto in) { return std::vector<double>{in[0][0] + 1}; };
  EXPECT_EQ(number(!map(next, std::vector{lowest})), 0) << "a function's NaN is a number";
}

TEST_F(Operations, ColumnsOfIntegersAndLogicalsMayHaveMissingValues) {
  const Table table = read("d,n,l,i\n1,1,true,9007199254740993\n,7,true,7\n3,-3,false,5\n",
                           {{{"n", "int8"}, {"l", "logical"}, {"i", "int64"}}});
  const auto holed = [&](const char* name) {
    const Array column = table.column(name), d = table.column("d");
    return where(kv::isnan(d), min(filter(column, d > 3)), column);
  };
  const Array n = holed("n"), l = holed("l"), i = holed("i");
  for (const bool isGathered : {false, true}) {
    EXPECT_THAT(numbers(where(kv::isnan(n), 0, n) + 1), ElementsAre(2, 1, -2)) << isGathered;
    EXPECT_THAT(numbers(n * 200.0),
                testing::Pointwise(testing::NanSensitiveDoubleEq(), {200.0, std::nan(""), -600.0}));
    EXPECT_THAT(numbers(filter(n, !l)), ElementsAre(-3)) << isGathered;
    EXPECT_EQ(number(sum(n)), -2) << isGathered;
    EXPECT_TRUE(std::isnan(number(min(n, Missing::Propagate) == -3))) << isGathered;
    session.gather(std::vector{n, l});
  }
  EXPECT_EQ(number(count(i)), 2);
  EXPECT_THAT(numbers(filter(i, !kv::isnan(i)) % 10), ElementsAre(3, 5));
  const Error error = errorOf([&] { i.gather(); });
  EXPECT_EQ(error.identifier(), "KALVEX:array:MissingField");
  EXPECT_EQ(error.arguments(), (std::vector<std::string>{"1", "9007199254740993", "int64"}));
}

TEST_F(Operations, ASumOfIntegersNeverWraps) {
  const Array n = read("n\n9223372036854775807\n1\n", {{{"n", "int64"}}}).column("n");
  const Error error = errorOf([&] { sum(n).gather(); });
  EXPECT_EQ(error.identifier(), "KALVEX:function:Overflow");
  EXPECT_EQ(error.arguments(), (std::vector<std::string>{"sum", "9223372036854775808", "int64"}));
  EXPECT_FALSE(error.stack().empty());
  EXPECT_EQ(number(sum(n * 1.0)), 0x1p63);
}

TEST_F(Operations, ConstantsAloneAreComputedAtOnce) {
  const Array hour = session.constant(60) * 60;
  const Gathered gathered = session.gather(std::vector<Array>{hour});
  EXPECT_EQ(gathered.values[0].number(), 3600);
  EXPECT_EQ(gathered.facts.passes, 0);
}

TEST_F(Operations, RandomNumbersDependOnlyOnSeedAndPartition) {
  folder.write("two/a.csv", "word,x\na,1\nb,2\n");
  folder.write("two/b.csv", "word,x\nc,3\n");
  const Table table = session.read(folder.path("two"));
  const auto draw = [&] { return numbers(table.rand()); };

  session.seed(5);
  const std::vector<double> first = draw();
  const std::vector<double> second = draw();
  EXPECT_THAT(first, testing::SizeIs(3));
  EXPECT_THAT(first, testing::Each(testing::AllOf(testing::Ge(0), testing::Lt(1))));
  EXPECT_NE(first, second);
  session.seed(5);
  const Array again = table.rand();
  EXPECT_EQ(numbers(filter(again, table.column("x") > 1)),
            std::vector<double>(first.begin() + 1, first.end()));
  EXPECT_EQ(numbers(again), first) << "an array keeps its numbers";
  EXPECT_EQ(numbers(table.filter(table.column("x") > 0).rand()), second);
  EXPECT_EQ(errorOf([&] { session.seed(1ULL << 53); }).identifier(), "KALVEX:CountTooLarge");
}

TEST_F(Operations, EveryFunctionInTheListsCanBeCalledByName) {
  const Array x = read(kSmall).column("x");
  const Array truth = x > 1;
  for (const FunctionFacts& function : elementFunctions()) {
    std::vector<Operand> inputs(function.inputs, x);
    if (function.name == "where") {
      inputs.front() = truth;
    }
    EXPECT_EQ(kv::apply(function.name, inputs).gather().rows(), 3U) << function.name;
  }
  for (const FunctionFacts& function : aggregates()) {
    const bool takesLogicals = function.name == "any" || function.name == "all";
    const Array result = aggregate(function.name, takesLogicals ? truth : x);
    EXPECT_EQ(result.gather().rows(), 1U) << function.name;
  }
}

}  // namespace
}  // namespace kv::test
