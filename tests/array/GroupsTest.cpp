#include <gmock/gmock.h>
#include <kv/groups.h>

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

}  // namespace
}  // namespace kv::test
