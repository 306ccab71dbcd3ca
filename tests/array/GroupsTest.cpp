#include <gmock/gmock.h>
#include <kv/groups.h>

#include <bit>
#include <cstdlib>

#include "ArrayTest.h"

namespace kv::test {

namespace {

using testing::ElementsAre;

class GroupsTest : public ArrayTest {
 protected:
  Table t = read("k,l,x\nb,2,1\na,1,2\nb,1,\n,2,4\nb,2,5\n");
};

TEST_F(GroupsTest, ATableHasARowForEachKey) {
  const Table grouped =
      groupBy(t, {"k"}).agg({{"m", "mean", "x"}, {"n", "size"}, {"last", "last", "x"}});
  EXPECT_THAT(grouped.columns(), ElementsAre("k", "m", "n", "last"));
  EXPECT_THAT(grouped.columnTypes(), ElementsAre("string", "double", "int64", "double"));
  EXPECT_THAT(numbers(grouped.column("m")), ElementsAre(2, 3, 4));
  EXPECT_THAT(numbers(grouped.column("n") + grouped.column("last")), ElementsAre(3, 8, 5));
  const Value keys = grouped.column("k").gather();
  EXPECT_EQ(keys.text(0), "a");
  EXPECT_EQ(keys.text(1), "b");
  EXPECT_THAT(numbers(groupBy(t, {"k"}).max("x").column("x") - grouped.column("last")),
              ElementsAre(0, 0, 0))
      << "the same keys are the same rows";
}

TEST_F(GroupsTest, SeveralColumnsMakeAKey) {
  const Table grouped = groupBy(t, {"l", "k"}).sum("x");
  EXPECT_THAT(numbers(grouped.column("l")), ElementsAre(1, 1, 2, 2));
  EXPECT_THAT(numbers(grouped.column("x")), ElementsAre(2, 0, 6, 4));
  EXPECT_THAT(numbers(groupBy(grouped, {"l"}).max("x").column("x")), ElementsAre(2, 6));
}

TEST_F(GroupsTest, WrongKeysAndFunctionsAreRefusedWhereTheyAreWritten) {
  const Table grouped = groupBy(t, {"k"}).sum("x");
  const auto idOf = [](auto&& action) { return errorOf(action).identifier(); };
  EXPECT_EQ(idOf([&] { groupBy(t, {"z"}); }), "KALVEX:array:UnknownColumn");
  EXPECT_EQ(idOf([&] { groupBy(t, {"k", "k"}); }), "KALVEX:array:SameName");
  EXPECT_EQ(idOf([&] { groupBy(t, {}); }), "KALVEX:array:NoArray");
  EXPECT_EQ(idOf([&] { groupBy(grouped, {"k", "x"}); }), "KALVEX:array:NotSupported");
  EXPECT_EQ(idOf([&] { groupBy(t, {"l"}).mean("k"); }), "KALVEX:function:BadTypes");
  EXPECT_EQ(idOf([&] {
              groupBy(t, {"l"}).agg({{"m", "median", "x"}});
            }),
            "KALVEX:array:UnknownFunction");
  EXPECT_EQ(idOf([&] { grouped.column("x") + t.column("x"); }), "KALVEX:array:DifferentSources");
}

/// With 2 MB the groups don't fit in their part of the memory.
TEST_F(GroupsTest, AnswersHaveTheSameBitsWhereverTheyAreComputed) {
  std::vector<std::uint64_t> expected;
  for (const char* spill : {"", "always"}) {
    setenv("KV_SPILL", spill, 1);
    for (const int threads : {1, 8}) {
      for (const char* limit : {"1GB", "2MB"}) {
        SCOPED_TRACE(testing::Message() << threads << " threads, " << limit << " " << spill);
        session.setThreads(threads);
        session.setMemoryLimit(std::string_view(limit));
        const Array i = session.arange(0, 20'000, 1, {.partitions = {.rows = 5'000}});
        const Table rows =
            tableOf(std::vector<NamedArray>{{"k", i * 7919 % 4'001}, {"x", sqrt(i)}});
        const Table grouped =
            groupBy(rows, {"k"}).agg({{"s", "std", "x"}, {"m", "mean", "x"}, {"f", "first", "x"}});
        const Gathered gathered =
            session.gather(std::vector{sum(grouped.column("s")), max(grouped.column("m")),
                                       sum(grouped.column("k") * grouped.column("f"))});
        const bool isSpilled = *spill != '\0' || std::string_view(limit) == "2MB";
        EXPECT_EQ(gathered.facts.spilledBytes > 0, isSpilled);
        std::vector<std::uint64_t> bits;
        for (const Value& value : gathered.values) {
          bits.push_back(std::bit_cast<std::uint64_t>(value.number()));
        }
        expected = expected.empty() ? bits : expected;
        EXPECT_EQ(bits, expected);
      }
    }
  }
  unsetenv("KV_SPILL");
}

}  // namespace
}  // namespace kv::test
