#include <arrow/memory_pool.h>
#include <gmock/gmock.h>

#include <numeric>
#include <string>
#include <vector>

#include "aggregate/ReduceTree.h"
#include "column/arrays.h"
#include "column/pieces.h"
#include "engine/Stage.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/csv.h"
#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Sizes = std::vector<double>;

class Pieces : public RuntimeSession {
 protected:
  Pieces() { setThreads(1); }  // so that calls come in the order of the rows

  /// A function that returns what it is given, and records how many rows that was.
  Value recording(Sizes& sizes) {
    return host::makeFunctionHandle("recording", [&sizes](const host::Call& call) {
      sizes.push_back(static_cast<double>(kxGetM(call.in(0))));
      call.out(0, matrix::sharedCopy(call.in(0)));
    });
  }

  static std::string rowsUpTo(int rows, const std::string& rest) {
    std::string text = "x,t\n";
    for (int i = 1; i <= rows; ++i) {
      text += std::to_string(i) + "," + rest + "\n";
    }
    return text;
  }
};

TEST_F(Pieces, AndFramesDependOnRowsAloneNotOnHowTheyAreRead) {
  const std::string wide(100, 't');  // a block of the file has some 10,000 such rows
  for (const std::string& rest : {std::string("t"), wide}) {
    const Value t = table({rowsUpTo(70'000, rest), rowsUpTo(5, rest), rowsUpTo(0, rest)});
    const Value x = column(t, "x");
    const Value few = filter(element("gt", x, 32'000), x);
    Sizes ofAll, ofFew, frames, framesOfFew;
    const auto map = [&](Sizes& sizes, const Value& of) {
      return host::call("elementfun", {recording(sizes).get(), of.get()});
    };
    const auto reduce = [&](Sizes& sizes, const Value& of) {
      const Value sum = host::makeFunctionHandle("kv.aggregate.sum");
      const Value size = host::makeFunctionHandle("size", [&sizes](const host::Call& call) {
        sizes.push_back(static_cast<double>(kxGetM(call.in(0))));
        call.out(0, host::makeDouble(sizes.back()));
      });
      return host::call("aggregatefun", {size.get(), sum.get(), of.get()});
    };
    EXPECT_EQ(gather(aggregate("count", map(ofAll, x))), Sizes{70'005});
    EXPECT_EQ(gather(aggregate("count", map(ofFew, few))), Sizes{38'000});
    EXPECT_EQ(gather(reduce(frames, x)), Sizes{70'005});
    EXPECT_EQ(gather(reduce(framesOfFew, few)), Sizes{38'000});
    EXPECT_THAT(ofAll, ElementsAre(32'768, 32'768, 4'464, 5));
    EXPECT_THAT(ofFew, ElementsAre(768, 32'768, 4'464));
    EXPECT_THAT(frames, ElementsAre(32'768, 32'768, 4'464, 5));
    EXPECT_THAT(framesOfFew, ElementsAre(32'768, 5'232));
  }
}

TEST_F(Pieces, OfWideRowsAreShorterAndBeginWhereTheSourceDoes) {
  const Value x = column(table({rowsUpTo(70'000, "t")}), "x");
  const Value few = filter(element("gt", x, 16'000), x);
  Sizes sizes;
  const Value function = recording(sizes);
  std::vector<const kxArray*> inputs(41, few.get());  // 320 bytes a row: 16,384 rows
  inputs[0] = function.get();
  const Value mapped = std::move(host::callMany("elementfun", 1, inputs).at(0));
  EXPECT_EQ(gather(aggregate("count", mapped)), Sizes{54'000});
  EXPECT_THAT(sizes, ElementsAre(384, 16'384, 16'384, 16'384, 4'464));

  const Value failing = host::makeFunctionHandle("failing", [](const host::Call& call) {
    if (kxGetM(call.in(0)) > 384) {
      host::raiseWithMessage("test:Failed", "too many", {});
    }
    call.out(0, matrix::sharedCopy(call.in(0)));
  });
  inputs[0] = failing.get();
  const Value failed = std::move(host::callMany("elementfun", 1, inputs).at(0));
  EXPECT_THAT(errorOf([&] { gather(failed); }).message, HasSubstr("rows 16385 to 32768"));
}

TEST_F(Pieces, AFunctionThatNoRowReachesIsCalledOnceOnNoRows) {
  const Value x = column(table({"x\n1\n2\n", "x\n3\n"}), "x");
  const Value none = filter(element("gt", x, 9), x);
  Sizes inner, outer, first;
  const auto map = [&](Sizes& sizes, const Value& of) {
    return host::call("elementfun", {recording(sizes).get(), of.get()});
  };
  EXPECT_THAT(gather(map(outer, filter(element("gt", map(inner, x), 9), x))), ElementsAre());
  EXPECT_THAT(inner, ElementsAre(2, 1)) << "not again";
  EXPECT_THAT(outer, ElementsAre(0));
  const Value sum = host::makeFunctionHandle("kv.aggregate.sum");
  EXPECT_THAT(gather(host::call("aggregatefun", {recording(first).get(), sum.get(), none.get()})),
              ElementsAre(0));
  EXPECT_THAT(first, ElementsAre(0));
}

TEST(PieceRows, ShrinkByPowersOfTwoForWideRows) {
  const auto rowsOf = [](std::size_t count, ElementType type) {
    return pieceRows(std::vector(count, type));
  };
  EXPECT_EQ(rowsOf(1, ElementType::Double), 32'768);
  EXPECT_EQ(rowsOf(31, ElementType::Double), 32'768);
  EXPECT_EQ(rowsOf(32, ElementType::Double), 16'384) << "8 MiB exactly";
  EXPECT_EQ(rowsOf(16, ElementType::String), 16'384);
  EXPECT_EQ(rowsOf(1'000, ElementType::Int8), 8'192);
  EXPECT_EQ(rowsOf(10'000'000, ElementType::Double), 1);
}

/// Leaves are texts, and a node shows its children.
TEST(ReduceTree, ReducesUpTo64InOrderAndEveryResult) {
  std::vector<std::size_t> sizes;
  const auto reduce = [&sizes](std::vector<std::vector<int>> nodes) {
    sizes.push_back(nodes.size());
    std::vector<int> joined;
    for (const std::vector<int>& node : nodes) {
      joined.insert(joined.end(), node.begin(), node.end());
    }
    return joined;
  };
  struct Case {
    int leaves;
    bool areReduced;
    std::vector<std::size_t> sizes;
  };
  const Case cases[] = {
      {0, false, {}},      {1, false, {1}},          {1, true, {}},
      {2, true, {2}},      {64, false, {64}},        {65, false, {64, 1, 2}},
      {65, true, {64, 2}}, {128, true, {64, 64, 2}}, {130, false, {64, 64, 2, 3}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.leaves);
    sizes.clear();
    ReduceTree<std::vector<int>> tree(reduce, each.areReduced);
    for (int i = 0; i < each.leaves; ++i) {
      tree.push({i});
    }
    std::vector<int> all(static_cast<std::size_t>(each.leaves));
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(tree.finish().value_or(std::vector<int>{}), all);
    EXPECT_EQ(sizes, each.sizes);
  }
}

TEST_F(Pieces, AStageCrossesAsBytesAndNothingElseIsTakenForOne) {
  std::vector<Step> steps{{makeRead(openCsv({folder.write("a.csv", "x,t\n1,a\n")}), {"x"})}};
  steps.push_back({makeVariable({"x"}, true), {{.index = 0}}, 1, "column x", "a.py:3"});
  steps.push_back({makeElementwise(*findElementFunction("gt")),
                   {{.index = 1}, {.isStageInput = true, .index = 0}}});
  steps.push_back({makeFilter(), {{.index = 2}, {.index = 1}}});
  steps.push_back({makeCallable(), {{.index = 3}}});
  steps.push_back({makeReduction(), {{.index = 4}}});
  steps.back().functions = {"square", ""};
  steps.push_back(
      {makeAggregate(*findAggregateFunction("sum"), {MissingRule::Skip}), {{.index = 3}}});
  steps.push_back({makeCollect(), {{.index = 4}}});
  steps.push_back({makeFrame(100), {{.index = 3}, {.index = 4}}, 2});
  steps.push_back({makeZip(), {{.index = 8, .output = 1}, {.index = 0}}, 2});
  steps.push_back({makeVariable({"x"}, false), {{.index = 9, .output = 1}}});
  steps.push_back({makeCollect(), {{.index = 10}}});
  const Stage stage(steps, {5, 6, 7, 11},
                    {{emptyArray({ElementType::Int8, {3, 2}})}, {.isOpaque = true}});
  const std::string bytes = stage.toBytes();
  arrow::MemoryPool* pool = arrow::default_memory_pool();
  const Stage read = Stage::fromBytes(bytes, pool);
  EXPECT_EQ(read.toBytes(), bytes);
  EXPECT_THAT(read.sources().front().columns, ElementsAre("x"));
  EXPECT_EQ(read.steps()[1].describe(), "column x at a.py:3");
  EXPECT_THAT(read.steps()[5].functions, ElementsAre("square", ""));
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(Stage::fromBytes(bytes.substr(0, length), pool), errors::StepError) << length;
  }
  steps.push_back({makeElementwise(*findElementFunction("gt")), {{.index = 1}, {.index = 8}}});
  EXPECT_THROW(Stage::fromBytes(Stage(steps, {}).toBytes(), pool), errors::StepError)
      << "rows that are cut differently go through a zip";
}

}  // namespace
}  // namespace kv::runtime::test
