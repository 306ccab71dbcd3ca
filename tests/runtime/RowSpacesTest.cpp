#include <gmock/gmock.h>

#include <filesystem>

#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class RowSpaces : public RuntimeSession {
 protected:
  RowSpaces() {
    session.defineFunction("lab.same", [](const host::Call& call) { same(call); });
  }

  static void same(const host::Call& call) { call.out(0, matrix::sharedCopy(call.in(0))); }
  static Value function() { return host::makeFunctionHandle("mine", same); }

  Value above(double bound) { return element("gt", column(t, "x"), bound); }
  Value above(const Value& bound) { return element("gt", column(t, "x"), bound); }
  Value mapped(const Value& handle) {
    return element("gt", host::call("elementfun", {handle.get(), column(t, "x").get()}), 1);
  }
  Value mean() { return element("minus", aggregate("mean", column(t, "x")), 1.5); }
  /// Values of "x", filtered, plus those of "y".
  Value sum(const Value& keepX, const Value& keepY) {
    return element("plus", filter(keepX, column(t, "x")), filter(keepY, column(t, "y")));
  }
  static Value gathered(Value array) {
    host::call("gather", {array.get()});
    return array;
  }

  Value t = table({"x,y\n1,10\n2,20\n", "x,y\n3,30\n4,40\n"});
};

/// All conditions keep the rows from 2 on, so what is refused isn't refused for its rows.
TEST_F(RowSpaces, RowsGoTogetherIfTheyAreKnownToBeFilteredInTheSameWay) {
  const Value mine = function();
  const Value named = host::makeFunctionHandle("lab.same");
  const Value again = host::makeFunctionHandle("lab.same");
  const Value marked = host::call("markforreuse", {column(t, "x").get()});
  const struct {
    const char* name;
    Value keepX;
    Value keepY;
    bool areSame;
  } cases[] = {
      {"one condition, recorded twice", above(1), above(1), true},
      {"another condition", above(1), above(1.5), false},
      {"another function", above(1), element("ge", column(t, "x"), 2), false},
      {"a computed bound", above(mean()), above(mean()), true},
      {"a bound that was gathered", above(gathered(mean())), above(mean()), true},
      {"a condition that was gathered", gathered(above(1)), above(1), true},
      {"an array that is kept for reuse", element("gt", marked, 1), above(1), true},
      {"one function", mapped(mine), mapped(mine), true},
      {"two functions", mapped(mine), mapped(function()), false},
      {"a function of the session", mapped(named), mapped(again), true},
  };
  for (const auto& c : cases) {
    if (c.areSame) {
      EXPECT_THAT(gather(sum(c.keepX, c.keepY)), ElementsAre(22, 33, 44)) << c.name;
    } else {
      const auto error = errorOf([&] { gather(sum(c.keepX, c.keepY)); });
      EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer") << c.name;
      EXPECT_THAT(error.arguments, ElementsAre(HasSubstr("filter"), HasSubstr("filter"), ""));
    }
  }
}

TEST_F(RowSpaces, RowsOfOthersAreRefusedBeforeAFileIsOpenedAndOnlyIfTheyAreNeeded) {
  const Value wrong = element("plus", filter(above(1), column(t, "x")), column(t, "y"));
  const Value no = host::makeLogical(false);
  EXPECT_THAT(gather(host::call("ternaryfun", {no.get(), wrong.get(), column(t, "x").get()})),
              ElementsAre(1, 2, 3, 4));
  for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
    std::filesystem::remove(file);
  }
  EXPECT_THAT(host::toText(host::call("kv.explain", {wrong.get()}).get()),
              HasSubstr("refused: rows differ"));
  const auto error = errorOf([&] { gather(aggregate("sum", wrong)); });
  EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer");
  EXPECT_THAT(error.arguments, ElementsAre(HasSubstr("filter"), HasSubstr("column y"), ""));
}

}  // namespace
}  // namespace kv::runtime::test
