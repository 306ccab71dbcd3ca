#include "kv/runtime/Chunk.h"

#include <arrow/array/array_base.h>
#include <arrow/array/builder_binary.h>
#include <arrow/buffer.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "column/allocate.h"
#include "column/concatenate.h"

namespace kv::runtime {

namespace {

using testing::ElementsAre;

std::vector<std::int64_t> listOf(const RowOrdinals& ordinals) {
  std::vector<std::int64_t> list;
  for (std::int64_t row = 0; row < ordinals.rows(); ++row) {
    list.push_back(ordinals.at(row));
  }
  return list;
}

Column threeTexts() {
  arrow::StringBuilder builder;
  EXPECT_TRUE(builder.Append("a").ok() && builder.AppendNull().ok() && builder.Append("ccc").ok());
  return Column(ElementType::String, builder.Finish().ValueOrDie()->data());
}

TEST(RowOrdinals, SurviveFiltersAndSlicesInAnyOrder) {
  const RowOrdinals range(100, 8);
  EXPECT_TRUE(range.isRange());
  EXPECT_THAT(listOf(range.slice(2, 3)), ElementsAre(102, 103, 104));
  EXPECT_TRUE(range.slice(2, 3).isRange());

  const RowOrdinals filtered = range.select({1, 4, 6, 7});
  EXPECT_FALSE(filtered.isRange());
  EXPECT_THAT(listOf(filtered.slice(1, 3)), ElementsAre(104, 106, 107));
  EXPECT_THAT(listOf(filtered.slice(1, 3).select({0, 2})), ElementsAre(104, 107));
  EXPECT_THAT(listOf(range.slice(4, 4).select({})), ElementsAre());
}

TEST(Chunk, JoinedOnesKeepTheirOrdinals) {
  const auto joined = [](std::int64_t second) {
    std::vector<Chunk> chunks;
    for (const auto& [first, rows] : {std::pair<std::int64_t, int>{3, 2}, {9, 0}, {second, 1}}) {
      chunks.push_back(
          {0, RowOrdinals(first, rows), nullptr, {missingColumn(ElementType::Double, rows)}});
    }
    return concatenate(chunks).ordinals;
  };
  EXPECT_TRUE(joined(5).isRange());
  EXPECT_THAT(listOf(joined(5)), ElementsAre(3, 4, 5));
  EXPECT_THAT(listOf(joined(7)), ElementsAre(3, 4, 7));
}

TEST(Column, SlicesShareItsBuffers) {
  const std::vector<float> values{1, 2, 3, 4};
  const Column column(ElementType::Single, 4, arrow::Buffer::Wrap(values));
  const Column part = column.slice(1, 3).slice(1, 2);
  EXPECT_THAT(part.values<float>(), ElementsAre(3, 4));
  EXPECT_EQ(part.values<float>().data(), values.data() + 2);
  EXPECT_EQ(part.byteSize(), 8);
}

TEST(Column, OfTextDistinguishesMissingFromEmptyInSlicesToo) {
  const Column part = threeTexts().slice(1, 2);
  EXPECT_TRUE(part.isNull(0));
  EXPECT_EQ(part.text(0), "");
  EXPECT_FALSE(part.isNull(1));
  EXPECT_EQ(part.text(1), "ccc");
  EXPECT_EQ(part.byteSize(), 3 + 2 * 4 + 1);
}

TEST(Chunk, CountsTheBytesOfItsColumns) {
  Chunk chunk;
  chunk.ordinals = RowOrdinals(0, 3);
  const std::vector<double> values{1, 2, 3};
  chunk.columns = {Column(ElementType::Double, 3, arrow::Buffer::Wrap(values)), threeTexts()};
  EXPECT_EQ(chunk.byteSize(), 24 + 4 + 3 * 4 + 1);
}

TEST(ElementType, NamesLeadBackToTypes) {
  for (const ElementType type : allElementTypes()) {
    EXPECT_EQ(elementTypeNamed(elementTypeName(type)), type);
    EXPECT_EQ(emptyColumn(type).rows(), 0);
    EXPECT_EQ(emptyColumn(type).byteSize(), 0);
  }
  EXPECT_EQ(elementTypeNamed("float"), std::nullopt);
}

}  // namespace
}  // namespace kv::runtime
