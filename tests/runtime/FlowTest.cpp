#include <arrow/memory_pool.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/Unit.h"
#include "engine/runUnit.h"
#include "kv/runtime/csv.h"
#include "operator/AlignedRows.h"
#include "runtime/RuntimeSession.h"
#include "runtime/makeColumn.h"
#include "runtime/readAll.h"
#include "support/RulesOff.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Numbers = std::vector<double>;

class Flow : public RuntimeSession {
 protected:
  static constexpr int kPartitionRows[] = {2'500, 0, 5};

  Flow() {
    setThreads(1);  // so that calls come in the order of the rows
    std::string texts[std::size(kPartitionRows)];
    for (std::size_t i = 0; i < std::size(texts); ++i) {
      texts[i] = "x,y\n";
      for (int row = 0; row < kPartitionRows[i]; ++row) {
        values.push_back(row % 1'000);
        texts[i] += std::to_string(row % 1'000) + "," + std::to_string(row) + "\n";
      }
    }
    t = table({texts[0], texts[1], texts[2]});
    x = column(t, "x");
  }

  static Value resize(const Value& array, double rows) {
    return host::call("resizechunks", {array.get(), host::makeDouble(rows).get()});
  }

  /// A function that doubles what it is given, and records how many rows that was.
  Value doubled(const Value& of) {
    const Value handle = host::makeFunctionHandle("doubling", [this](const host::Call& call) {
      sizes.push_back(static_cast<double>(kxGetM(call.in(0))));
      const Value two = host::makeDouble(2);
      call.out(0, host::call("kv.element.times", {call.in(0), two.get()}));
    });
    return host::call("elementfun", {handle.get(), of.get()});
  }

  /// The same as the first function of a reduction, which counts.
  Value counted(const Value& of) {
    const Value size = host::makeFunctionHandle("size", [this](const host::Call& call) {
      sizes.push_back(static_cast<double>(kxGetM(call.in(0))));
      call.out(0, host::makeDouble(sizes.back()));
    });
    const Value sum = host::makeFunctionHandle("kv.aggregate.sum");
    return host::call("aggregatefun", {size.get(), sum.get(), of.get()});
  }

  Numbers takeSizes() { return std::exchange(sizes, {}); }

  static Numbers framesOf(std::initializer_list<int> partitions, int frameRows) {
    Numbers frames;
    for (int rows : partitions) {
      for (; rows > 0; rows -= frameRows) {
        frames.push_back(std::min(rows, frameRows));
      }
    }
    return frames;
  }

  Value t;
  Value x;
  Numbers values;  ///< of x
  Numbers sizes;
};

TEST_F(Flow, FunctionsSeeAsManyRowsAsWereAskedFor) {
  const auto isLarge = [](double value) { return value > 497; };
  const int numLarge = static_cast<int>(std::ranges::count_if(values, isLarge));
  for (const int rows : {1, 7, 500, 2'500, 40'000}) {
    SCOPED_TRACE(rows);
    const Numbers all = framesOf({2'500, 5}, rows);
    const Numbers large = framesOf({numLarge}, rows);
    const Value resized = resize(x, rows);
    const Value kept = filter(element("gt", resized, 497), resized);
    for (const bool isGathered : {false, true}) {
      SCOPED_TRACE(isGathered ? "gathered" : "pending");
      Numbers expected = values;
      std::ranges::transform(values, expected.begin(), [](double value) { return 3 * value; });
      EXPECT_EQ(gather(element("plus", x, doubled(resized))), expected);
      EXPECT_EQ(takeSizes(), all);
      EXPECT_EQ(gather(element("minus", doubled(doubled(resized)), resized)), expected);
      EXPECT_EQ(takeSizes().size(), 2 * all.size());
      EXPECT_EQ(gather(counted(element("plus", resized, x))), Numbers{2'505});
      EXPECT_EQ(takeSizes(), all);
      EXPECT_EQ(gather(counted(kept)), Numbers{static_cast<double>(numLarge)});
      EXPECT_EQ(takeSizes(), large);
      EXPECT_EQ(gather(aggregate("sum", element("plus", doubled(kept), kept))),
                gather(aggregate("sum", element("times", filter(element("gt", x, 497), x), 3))));
      EXPECT_EQ(takeSizes(), large);
      EXPECT_EQ(gather(resized), values);
      EXPECT_EQ(gather(kept).size(), static_cast<std::size_t>(numLarge));
    }
  }
  EXPECT_EQ(gather(doubled(resize(resize(x, 10), 600))).size(), 2'505u);
  EXPECT_EQ(takeSizes(), framesOf({2'500, 5}, 600)) << "the last request counts";
  gather(doubled(element("plus", resize(x, 10), resize(x, 600))));
  EXPECT_EQ(takeSizes(), framesOf({2'500, 5}, 10)) << "the least of two";
  EXPECT_EQ(gather(doubled(resize(filter(element("gt", x, 1e9), x), 10))), Numbers());
  EXPECT_EQ(takeSizes(), Numbers{0}) << "of no rows at all";
}

TEST_F(Flow, SeveralArraysAreResizedTogetherAndNoMoreIsReadForIt) {
  const kv::test::RulesOff none("");
  const Value two = host::makeDouble(2);
  const Value bound = host::makeDouble(1);
  const auto both = host::callMany(
      "resizechunks", 2, std::vector<const kxArray*>{x.get(), t.get(), two.get(), bound.get()});
  const Value sum = aggregate("sum", element("plus", doubled(both[0]), column(both[1], "x")));
  const std::string plan = host::toText(host::call("kv.explain", {sum.get()}).get());
  EXPECT_THAT(plan, HasSubstr("1 of 2 columns: x"));
  EXPECT_THAT(plan, HasSubstr("resize chunks to 1 row("));
  EXPECT_EQ(gather(sum), gather(aggregate("sum", element("times", x, 3))));
  EXPECT_EQ(takeSizes().size(), 2'505u);
}

TEST_F(Flow, RowsThatDifferAreRefusedWithWhatMadeThem) {
  const Value keep = element("gt", x, 10);
  host::call("gather", {keep.get()});  // so only the run can compare the rows
  const Value few = filter(keep, x);
  for (const double rows : {3.0, 40'000.0}) {
    const Value n = host::makeDouble(rows);
    auto both =
        host::callMany("resizechunks", 2, std::vector<const kxArray*>{x.get(), few.get(), n.get()});
    for (const Value& sum : {element("plus", doubled(resize(x, rows)), few),
                             element("plus", few, resize(x, rows)), std::move(both[0])}) {
      const auto error = errorOf([&] { gather(sum); });
      EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer");
      EXPECT_THAT(error.arguments, testing::Contains(HasSubstr("filter")));
      EXPECT_THAT(error.arguments, testing::Not(testing::Contains(HasSubstr("resize"))));
    }
  }
}

TEST_F(Flow, OnlyRowsAndABoundCanBeAskedFor) {
  struct Case {
    Value parameter;
    std::string_view id;
    std::string argument;
  };
  Case cases[] = {
      {host::makeDouble(0), "KALVEX:array:ChunkRows", "0"},
      {host::makeDouble(2.5), "KALVEX:array:ChunkRows", "2.5"},
      {host::makeString("MinRows"), "KALVEX:array:ResizeParameter", "'MinRows'"},
      {host::makeChars("MaxRows"), "KALVEX:array:ResizeParameter", "'MaxRows'"},
      {host::makeLogical(true), "KALVEX:array:ResizeParameter", "a logical"},
      {host::makeEmptyDouble(), "KALVEX:array:ResizeParameter", "a double"},
  };
  const Value ten = host::makeDouble(10);
  for (const Case& each : cases) {
    SCOPED_TRACE(each.argument);
    const auto error = errorOf([&] {
      host::call("resizechunks", {x.get(), ten.get(), each.parameter.get()});
    });
    EXPECT_EQ(error.identifier, each.id);
    EXPECT_THAT(error.arguments, ElementsAre(each.argument));
  }
  const Value infinity = host::makeDouble(kInf);
  EXPECT_EQ(gather(host::call("resizechunks", {x.get(), ten.get(), infinity.get()})), values);
  EXPECT_EQ(errorOf([&] {
              host::call("resizechunks", {x.get(), ten.get(), ten.get(), ten.get()});
            }).identifier,
            "KALVEX:array:ResizeParameter");
}

TEST(AlignedRows, RefuseRowsThatDifferAtOnceOrAtTheEnd) {
  const auto chunkOf = [](RowOrdinals ordinals) {
    Chunk chunk;
    chunk.columns = {doubles(Numbers(static_cast<std::size_t>(ordinals.rows())))};
    chunk.ordinals = std::move(ordinals);
    return chunk;
  };
  const RowOrdinals first(0, 3);
  for (const auto& [other, same] :
       {std::pair{first.select({0, 2}), 0}, std::pair{RowOrdinals(1, 3), 0},
        std::pair{first.select({0, 1}), 2}}) {
    AlignedRows rows({"x at a:1", "y at a:2"});
    rows.push(0, chunkOf(first));
    rows.push(1, chunkOf(other));
    rows.finishInput(0);
    rows.finishInput(1);
    if (same > 0) {
      EXPECT_EQ(rows.take(same)->at(1).rows(), same);
    }
    const auto error = stepErrorOf([&] { rows.take(rows.rows()); });
    EXPECT_EQ(error.id(), "KALVEX:array:RowsDiffer");
    EXPECT_THAT(error.arguments(), ElementsAre("x at a:1", "y at a:2", ""));
  }
}

/// Passes on the first rows, after which it asks for nothing.
class Head final : public FlowOperator {
 public:
  explicit Head(std::int64_t rows) : FlowOperator({.name = "head"}), rows_(rows) {}

  std::unique_ptr<FlowRun> start(const StepScope& /*scope*/,
                                 std::span<const FlowInput> /*inputs*/) const override {
    return std::make_unique<Run>(rows_);
  }

 private:
  class Run final : public FlowRun {
   public:
    explicit Run(std::int64_t rows) : rows_(rows) {}
    void push(std::size_t /*input*/, const Chunk& rows) override { next_ = rows; }
    void finishInput(std::size_t /*input*/) override {}
    std::optional<std::vector<Chunk>> next() override {
      std::optional<std::vector<Chunk>> chunks;
      if (next_ && wantsMore(0)) {
        rows_ -= next_->rows();
        chunks = std::vector{*next_};
      }
      next_.reset();
      return chunks;
    }
    bool wantsMore(std::size_t /*input*/) const override { return rows_ > 0; }

   private:
    std::int64_t rows_;
    std::optional<Chunk> next_;
  };

  std::int64_t rows_;
};

TEST_F(Flow, ReadingStopsWhenNoStepWantsMore) {
  std::string text = "x\n";
  for (int row = 0; row < 200'000; ++row) {
    text += "1234567\n";
  }
  const std::string path = folder.write("long.csv", text);
  const auto pool = arrow::MemoryPool::CreateDefault();
  const auto rowsRead = [&](std::int64_t wanted, bool isAllWanted) {
    std::vector<Step> steps{{makeRead(openCsv({path}))}};
    steps.push_back({std::make_shared<Head>(wanted), {{.index = 0}}});
    steps.push_back({makeFrame(10), {{.index = 1}}});
    steps.push_back({makeCollect(), {{.index = 2}}});
    std::vector<std::size_t> outputs{3};
    if (isAllWanted) {
      steps.push_back({makeCollect(), {{.index = 0}}});
      outputs.push_back(4);
    }
    const Stage stage(std::move(steps), std::move(outputs));
    UserFunctions functions;
    const CancellationToken never;
    const UnitResult result =
        runUnit(stage, StageRows(stage), Unit{}.toBytes(), functions, {pool.get(), never});
    EXPECT_GT(pool->total_bytes_allocated(), 0);
    EXPECT_FALSE(result.failure);
    std::int64_t kept = 0;
    for (const Chunk& chunk : result.sinks[0].chunks) {
      kept += chunk.rows();
    }
    EXPECT_GE(kept, std::min(wanted, result.rows));
    return result.rows;
  };
  EXPECT_LT(rowsRead(20, false), 200'000);
  EXPECT_EQ(rowsRead(1'000'000, false), 200'000);
  EXPECT_EQ(rowsRead(20, true), 200'000);
}

}  // namespace
}  // namespace kv::runtime::test
