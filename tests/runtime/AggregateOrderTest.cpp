#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "kv/runtime/Aggregates.h"
#include "kv/runtime/selectRows.h"
#include "runtime/makeColumn.h"
#include "support/Seed.h"

namespace kv::runtime {

namespace {

using enum ElementType;

/// Values of very different sizes, some missing, so that sums reveal every change of order.
class AggregateOrder : public testing::Test {
 protected:
  std::vector<double> wildValues(std::size_t count, double missingShare) {
    std::vector<double> values(count);
    for (double& value : values) {
      const bool isMissing = uniform_(random_) < missingShare;
      value = isMissing ? kNaN : normal_(random_) * std::exp2(60 * uniform_(random_));
    }
    return values;
  }

  std::vector<std::uint8_t> flags(std::size_t count, double share) {
    std::vector<std::uint8_t> keep(count);
    for (auto& flag : keep) {
      flag = uniform_(random_) < share;
    }
    return keep;
  }

  std::int64_t lengthUpTo(std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(1, most)(random_);
  }

  std::mt19937_64 random_{kv::test::drawSeed()};
  std::uniform_real_distribution<double> uniform_{0, 1};
  std::normal_distribution<double> normal_;
};

Chunk chunkOf(const Column& column, std::int64_t first, std::int64_t rows) {
  Chunk chunk;
  chunk.ordinals = RowOrdinals(first, rows);
  chunk.columns = {column.slice(first, rows)};
  return chunk;
}

/// All kinds of aggregates of numbers, for both rules, as bytes.
template <class NextLength>
std::string reduceAll(const Column& column, const Column& keep, NextLength&& nextLength) {
  std::string bytes;
  for (const AggregateFunction& function : aggregateFunctions()) {
    if (function.kind >= AggregateKind::Any) {
      continue;
    }
    for (const MissingRule rule : {MissingRule::Skip, MissingRule::Propagate}) {
      AggregateState state(function.kind, rule);
      for (std::int64_t first = 0; first < column.rows();) {
        const std::int64_t rows = std::min<std::int64_t>(nextLength(), column.rows() - first);
        const Chunk kept = selectRows(chunkOf(column, first, rows), keep.slice(first, rows));
        state.update(kept.columns[0], kept.ordinals);
        first += rows;
      }
      bytes += state.finish().toBytes();
    }
  }
  return bytes;
}

TEST_F(AggregateOrder, AnswersDoNotDependOnHowRowsAreCut) {
  constexpr std::int64_t kRows = 3 * kReductionBlock + 777;
  for (const double keepShare : {1.0, 0.97, 0.3, 0.002, 0.0}) {
    for (const ElementType type : {Double, Single, Int32}) {
      std::vector<double> values = wildValues(std::size_t{kRows}, type == Int32 ? 0 : 0.1);
      if (type == Int32) {
        std::ranges::transform(values, values.begin(), [](double value) {
          return std::trunc(std::clamp(value, -2e9, 2e9));
        });
      }
      const Column column = numbers(type, values);
      const Column keep = logicals(flags(std::size_t{kRows}, keepShare));
      const std::string whole = reduceAll(column, keep, [] { return kRows; });
      for (const std::int64_t most : {1, 9, 500, 6000}) {
        const auto cut = [&] { return lengthUpTo(most); };
        EXPECT_EQ(reduceAll(column, keep, cut), whole)
            << elementTypeName(type) << ", kept " << keepShare << ", chunks of up to " << most;
      }
    }
  }
}

double sumOf(const std::vector<double>& values, std::int64_t partitionRows) {
  std::vector<AggregatePartial> partials;
  const Column column = doubles(values);
  for (std::int64_t first = 0; first < column.rows(); first += partitionRows) {
    const std::int64_t rows = std::min(partitionRows, column.rows() - first);
    AggregateState state(AggregateKind::Sum, MissingRule::Skip);
    state.update(column.slice(first, rows), RowOrdinals(0, rows));
    partials.push_back(AggregatePartial::fromBytes(state.finish().toBytes()));
  }
  return combinePartials(AggregateKind::Sum, partials).values<double>()[0];
}

TEST_F(AggregateOrder, TheErrorOfASumIsAUnitInTheLastPlace) {
  const std::vector<double> kColumns[] = {std::vector<double>(200000, 0.1), wildValues(200000, 0.1),
                                          wildValues(37, 0)};
  for (const auto& values : kColumns) {
    __extension__ using Exact = __float128;
    Exact sum = 0;
    Exact size = 0;
    for (const double value : values) {
      if (std::isnan(value)) {
        continue;
      }
      sum += value;
      size += std::abs(value);
    }
    const double unit = static_cast<double>(size) * std::numeric_limits<double>::epsilon();
    for (const std::int64_t partitionRows : {1000, 1 << 20}) {
      const Exact error = static_cast<Exact>(sumOf(values, partitionRows)) - sum;
      EXPECT_LE(std::abs(static_cast<double>(error)), unit) << values.size() << " values";
    }
  }
}

TEST_F(AggregateOrder, VariancesSurviveALargeMean) {
  std::vector<double> values(50000);
  for (double& value : values) {
    value = 1e9 + normal_(random_);
  }
  values[0] = 0;  // a first value far from all others is the worst shift for a block
  const auto count = static_cast<long double>(values.size());
  const long double mean = std::accumulate(values.begin(), values.end(), 0.0L) / count;
  long double squares = 0;
  for (const double value : values) {
    squares += (value - mean) * (value - mean);
  }
  AggregateState state(AggregateKind::Var, MissingRule::Skip);
  state.update(doubles(values), RowOrdinals(0, 50000));
  const AggregatePartial partial = state.finish();
  const double variance = combinePartials(AggregateKind::Var, {&partial, 1}).values<double>()[0];
  EXPECT_NEAR(variance / static_cast<double>(squares / (count - 1)), 1, 1e-11);
}

}  // namespace
}  // namespace kv::runtime
