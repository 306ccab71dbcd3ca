#include <gmock/gmock.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "column/chunkBytes.h"
#include "column/pool.h"
#include "engine/Unit.h"
#include "executor/SerialUnits.h"
#include "executor/runStage.h"
#include "kv/runtime/memory.h"
#include "operator/operators.h"

namespace kv::runtime::test {

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;
using testing::Pair;
using testing::SizeIs;

constexpr std::int64_t kPartitions = 12;

/// Runs units somewhat out of order, and loses some.
class LossyUnits final : public UnitService {
 public:
  using Loses = std::function<bool(const Unit&)>;

  explicit LossyUnits(Loses loses) : loses_(std::move(loses)) {}

  void begin(const StageScope& stage) override {
    ++begun;
    units_.begin(stage);
  }
  void submit(std::string unit) override { waiting_.push_back(std::move(unit)); }

  std::optional<UnitOutcome> next() override {
    if (waiting_.empty()) {
      return std::nullopt;
    }
    const std::string bytes = std::move(waiting_.back());
    waiting_.pop_back();
    const Unit unit = Unit::fromBytes(bytes);
    EXPECT_EQ(static_cast<int>(unit.attempt), attempts[unit.partition]++);
    if (loses_(unit)) {
      return UnitLoss{unit.partition, "its machine is gone"};
    }
    units_.submit(bytes);
    return units_.next();
  }

  std::int64_t threads() const override { return 3; }
  std::int64_t window() const override { return 5; }
  void cancelAfter(std::int64_t partition) override {
    std::erase_if(waiting_, [partition](const std::string& unit) {
      return Unit::fromBytes(unit).partition > partition;
    });
  }

  int begun = 0;
  std::map<std::int64_t, int> attempts;  ///< by partition

 private:
  Loses loses_;
  SerialUnits units_;
  std::deque<std::string> waiting_;
};

/// Returns the rows of the first input.
class FirstInput final : public UserFunctions {
 public:
  std::vector<Chunk> call(std::size_t /*step*/, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override {
    types.noteCall();
    types.add("f", 0, inputs[0].rows->arrayType(), GivenRows::of(rows));
    return {*inputs[0].rows};
  }
  PartitionResults callPartition(std::size_t /*step*/, const Chunk& /*rows*/,
                                 std::span<const FunctionInput> /*inputs*/,
                                 const PartitionPlace& /*place*/, bool /*returnsUnused*/,
                                 OutputTypes& /*types*/) override {
    return {};
  }
};

struct Ran {
  std::optional<errors::FailureRecord> failure;
  std::string bytes{};  ///< of all results
};

/// The results of x, f(x) and sum(x) over `rows` rows in kPartitions partitions.
Ran run(UnitService& units, std::int64_t rows, const CancellationToken& token,
        bool hasSideEffects = false) {
  std::vector<Step> steps{
      {makeRead(openArange(ElementType::Double, 0.1, 0.2, rows, {.partitionRows = 7}))}};
  steps.push_back({makeCallable(), {{.index = 0}}, 1, "f"});
  steps.push_back({makeCollect(), {{.index = 1}}});
  steps.push_back({makeAggregate(*findAggregateFunction("sum"), {}), {{.index = 0}}});
  std::vector<std::size_t> outputs{2, 3};
  if (hasSideEffects) {
    steps.push_back({makeDeliver(1, true), {{.index = 0}}});
    outputs.push_back(4);
  }
  const Stage stage(std::move(steps), std::move(outputs));
  const StageRows stageRows(stage);
  FirstInput functions;
  const ExecutionContext context{currentPool(), token};
  OrderedMerge merge(stage, functions, stageRows.numPartitions());
  Ran ran{runStage(units, {stage, functions, context}, merge, stageRows, 0)};
  ByteWriter bytes;
  for (std::size_t output = 0; output < 2 && !ran.failure; ++output) {
    const MergedSink merged = merge.finish(output);
    for (const Chunk& array : merged.arrays) {
      writeChunk(array, bytes);
    }
    for (const std::vector<Chunk>& partition : merged.partitions) {
      for (const Chunk& chunk : partition) {
        writeChunk(chunk, bytes);
      }
    }
  }
  ran.bytes = bytes.take();
  return ran;
}

TEST(LostUnits, RunAgainAndChangeNoBit) {
  const CancellationToken never;
  for (const std::int64_t rows : {7 * kPartitions, std::int64_t{0}}) {
    SerialUnits whole;
    const std::string expected = run(whole, rows, never).bytes;
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
      LossyUnits lossy([seed](const Unit& unit) {
        const std::uint64_t mixed =
            (seed * 1009 + static_cast<std::uint64_t>(unit.partition) * 31 + unit.attempt) *
            2654435761;
        return unit.attempt + 1 < kMaxAttempts && (mixed >> 16) % 3 != 0;
      });
      const Ran ran = run(lossy, rows, never);
      ASSERT_FALSE(ran.failure) << seed;
      EXPECT_TRUE(ran.bytes == expected) << seed;
      EXPECT_EQ(lossy.begun, 1);
      EXPECT_THAT(lossy.attempts, SizeIs(rows > 0 ? kPartitions : 2));  // and the unit without rows
      EXPECT_THAT(lossy.attempts, Each(Pair(Ge(0), AllOf(Ge(1), Le(int{kMaxAttempts})))));
    }
  }
}

TEST(LostUnits, AreAFailureOfTheirPartitionAfterTheLastAttempt) {
  const CancellationToken never;
  for (const bool hasSideEffects : {false, true}) {
    LossyUnits lossy([](const Unit& unit) { return unit.partition >= 3; });
    const Ran ran = run(lossy, 7 * kPartitions, never, hasSideEffects);
    ASSERT_TRUE(ran.failure);
    EXPECT_EQ(ran.failure->partition, 3);
    EXPECT_EQ(ran.failure->error.identifier, "KALVEX:executor:UnitLost");
    EXPECT_THAT(ran.failure->error.arguments,
                ElementsAre("4", hasSideEffects ? "1" : "4", "its machine is gone"));
    EXPECT_EQ(lossy.attempts[3], hasSideEffects ? 1 : int{kMaxAttempts});
  }
}

TEST(LostUnits, AreNotRunAgainOnceTheEvaluationIsCancelled) {
  CancellationToken token;
  LossyUnits lossy([&](const Unit&) {
    token.cancel();
    return true;
  });
  EXPECT_THROW(run(lossy, 7 * kPartitions, token), Cancelled);
  EXPECT_THAT(lossy.attempts, SizeIs(1));
}

}  // namespace
}  // namespace kv::runtime::test
