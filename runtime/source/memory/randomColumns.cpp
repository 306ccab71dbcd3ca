// Random numbers by position: any rows of any column can be drawn alone, because the stream of a
// partition can be entered at each of its numbers.

#include <fmt/core.h>

#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include "column/allocate.h"
#include "column/arrays.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/memory.h"
#include "random/Philox.h"
#include "random/normal.h"
#include "source/memory/cutOf.h"
#include "source/memory/generators.h"

namespace kv::runtime {

namespace {

/// The numbers of a partition are those of its own stream, column by column; partitions count from
/// 1 there, as in streams of partitions elsewhere.
class Random final : public Generator {
 public:
  Random(const RandomNumbers& numbers, std::uint64_t column, PositionCut cut)
      : Generator(numbers.kind == RandomNumbers::Kind::Integers ? ElementType::Int64
                                                                : ElementType::Double),
        numbers_(numbers),
        column_(column),
        cut_(std::move(cut)) {}

  static std::shared_ptr<const ArrayColumn> read(ByteReader& bytes, const PositionCut& cut) {
    RandomNumbers numbers;
    const auto kind = bytes.number<std::uint8_t>();
    numbers.kind = static_cast<RandomNumbers::Kind>(kind);
    numbers.low = bytes.number<std::int64_t>();
    numbers.high = bytes.number<std::int64_t>();
    numbers.seed = bytes.number<std::uint64_t>();
    const auto column = bytes.number<std::uint64_t>();
    if (kind > static_cast<std::uint8_t>(RandomNumbers::Kind::Integers) ||
        numbers.low >= numbers.high) {
      bytes.refuse();
    }
    return std::make_shared<Random>(numbers, column, cut);
  }

  Column elements(std::int64_t first, std::int64_t count) const override {
    auto buffer = allocateBuffer(count * static_cast<std::int64_t>(sizeof(double)));
    auto* const values = buffer->mutable_data();
    for (std::int64_t done = 0; done < count;) {
      const std::int64_t partition = cut_.partitionOf(first + done);
      const std::int64_t begin = cut_.begin(partition);
      const std::int64_t end = std::min(cut_.end(partition), first + count);
      const auto ofPartition = static_cast<std::uint64_t>(cut_.end(partition) - begin);
      const auto number = column_ * ofPartition + static_cast<std::uint64_t>(first + done - begin);
      const std::int64_t drawn = end - first - done;
      draw(static_cast<std::uint64_t>(partition) + 1, number, drawn,
           values + done * static_cast<std::int64_t>(sizeof(double)));
      done += drawn;
    }
    return {type(), count, std::move(buffer)};
  }

  void describe(ByteWriter& bytes) const override {
    bytes.number(static_cast<std::uint8_t>(GeneratorKind::Random));
    bytes.number(static_cast<std::uint8_t>(numbers_.kind));
    bytes.number(numbers_.low);
    bytes.number(numbers_.high);
    bytes.number(numbers_.seed);
    bytes.number(column_);
  }

 private:
  /// Numbers [first, first + count) of a stream.
  void draw(std::uint64_t stream, std::uint64_t first, std::int64_t count,
            std::uint8_t* values) const {
    if (numbers_.kind == RandomNumbers::Kind::Integers) {
      drawIntegers(
          stream, first,
          std::span(reinterpret_cast<std::int64_t*>(values), static_cast<std::size_t>(count)));
      return;
    }
    PhiloxStream numbers(numbers_.seed, stream, first);
    for (double& value :
         std::span(reinterpret_cast<double*>(values), static_cast<std::size_t>(count))) {
      value = numbers_.kind == RandomNumbers::Kind::Uniform ? numbers.nextUniform()
                                                            : nextNormal(numbers);
    }
  }

  static double nextNormal(PhiloxStream& numbers) {
    // The middle of one of 2^52 parts: exact, and never 0 or 1.
    return normalQuantile((static_cast<double>(numbers.nextBits() >> 12) + 0.5) * 0x1p-52);
  }

  __extension__ using Wide = unsigned __int128;

  /// The high part of a product with 128 random bits: the chances of two numbers differ by less
  /// than 1 in 2^64.
  void drawIntegers(std::uint64_t stream, std::uint64_t first,
                    std::span<std::int64_t> values) const {
    PhiloxStream numbers(numbers_.seed, stream, 2 * first);
    const auto low = static_cast<std::uint64_t>(numbers_.low);
    const std::uint64_t range = static_cast<std::uint64_t>(numbers_.high) - low;
    for (std::int64_t& value : values) {
      const std::uint64_t high64 = numbers.nextBits();
      const std::uint64_t low64 = numbers.nextBits();
      const Wide carried =
          Wide{high64} * range + static_cast<std::uint64_t>(Wide{low64} * range >> 64);
      value = static_cast<std::int64_t>(low + static_cast<std::uint64_t>(carried >> 64));
    }
  }

  RandomNumbers numbers_;
  std::uint64_t column_;
  PositionCut cut_;
};

}  // namespace

std::shared_ptr<const ArrayColumn> readRandomColumn(ByteReader& bytes, const PositionCut& cut) {
  return Random::read(bytes, cut);
}

std::shared_ptr<const Datastore> openRandom(const RandomNumbers& numbers, std::int64_t rows,
                                            Dimensions trailing, const CutRequest& request) {
  if (numbers.low >= numbers.high) {
    errors::raiseStep("KALVEX:datastore:EmptyRange",
                      {std::to_string(numbers.low), std::to_string(numbers.high)});
  }
  const std::size_t count = columnsIn(trailing);
  PositionCut cut = cutOf(rows, static_cast<std::int64_t>(count * sizeof(double)), request);
  std::vector<std::shared_ptr<const ArrayColumn>> columns;
  for (std::size_t column = 0; column < count; ++column) {
    columns.push_back(std::make_shared<Random>(numbers, column, cut));
  }
  return generated(fmt::format("{} rows of random numbers", rows), std::move(cut),
                   std::move(trailing), std::move(columns));
}

}  // namespace kv::runtime
