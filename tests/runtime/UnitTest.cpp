#include "engine/Unit.h"

#include <gtest/gtest.h>

#include <arrow/memory_pool.h>

#include "column/arrays.h"
#include "engine/Stage.h"
#include "kv/errors/StepError.h"
#include "kv/errors/bytes.h"

namespace kv::runtime {

namespace {

TEST(ByteReader, BelievesNoCountThatTheRestIsTooShortFor) {
  errors::ByteWriter written;
  written.number<std::uint64_t>(2);
  written.number<std::uint64_t>(0);
  const std::string bytes = written.take();
  EXPECT_EQ(errors::ByteReader(bytes, "two numbers").count(4), 2u);
  EXPECT_THROW(errors::ByteReader(bytes, "two numbers").count(8), errors::StepError);
}

/// Arrow checks its own part of the bytes, which may hold padding.
TEST(Stage, IsReadFromBytesAsItWasWrittenOrRefused) {
  constexpr std::string_view kEndOfArrow("\xFF\xFF\xFF\xFF\0\0\0\0", 8);
  const auto places = std::make_shared<const RowPlaces>(
      RowPlaces{{0, 0}, std::nullopt, std::make_shared<const RowCut>(RowCut{"a source", {0}})});
  std::vector<Step> steps{{makeCollect(), {{.isStageInput = true}}}};
  const std::string bytes =
      Stage(std::move(steps), {0}, {{emptyArray({ElementType::Int8}), places}}).toBytes();
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    if (at >= bytes.find(kEndOfArrow.substr(0, 4)) && at < bytes.find(kEndOfArrow) + 8) {
      continue;
    }
    for (const char other : {'\0', '\1', '\2', '\x7F'}) {
      std::string changed = bytes;
      changed[at] = other;
      try {
        const Stage read = Stage::fromBytes(changed, arrow::default_memory_pool());
        EXPECT_TRUE(read.toBytes() == changed) << "byte " << at << " is " << int{other};
      } catch (const errors::StepError&) {
        EXPECT_NE(changed, bytes);
      }
    }
  }
}

TEST(Unit, IsSentAsAFewBytesAndNothingElseIsTakenForOne) {
  const Unit unit{.stage = 7,
                  .partition = 3,
                  .numPartitions = 1234,
                  .range = {17, 4},
                  .randomKey = ~0ull,
                  .attempt = 2};
  const std::string bytes = unit.toBytes();
  EXPECT_LT(bytes.size(), 200u);
  EXPECT_EQ(Unit::fromBytes(bytes), unit);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(Unit::fromBytes(bytes.substr(0, length)), errors::StepError) << length;
  }
  EXPECT_THROW(Unit::fromBytes("x" + bytes.substr(1)), errors::StepError);
  const Unit withoutRows{.partition = 5,
                         .numPartitions = 5,
                         .knownTypes = {{1, {{ElementType::Int8, {3, 2}}}}, {4, {}}}};
  EXPECT_EQ(Unit::fromBytes(withoutRows.toBytes()), withoutRows);
  const Unit behindAll{.partition = 6, .numPartitions = 5};
  try {
    Unit::fromBytes(behindAll.toBytes());
    FAIL() << "there is no such partition";
  } catch (const errors::StepError& error) {
    EXPECT_EQ(error.id(), "KALVEX:executor:BadBytes");
  }
}

}  // namespace
}  // namespace kv::runtime
