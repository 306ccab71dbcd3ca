#include "engine/Unit.h"

#include <gtest/gtest.h>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

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
