#include "engine/Unit.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kv::runtime {
namespace {

TEST(Unit, IsSentAsAFewBytesAndNothingElseIsTakenForOne) {
  const Unit unit{
      .stage = 7, .partition = 3, .numPartitions = 1234, .randomKey = ~0ull, .attempt = 2};
  const std::string bytes = unit.toBytes();
  EXPECT_LT(bytes.size(), 200u);
  EXPECT_EQ(Unit::fromBytes(bytes), unit);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(Unit::fromBytes(bytes.substr(0, length)), std::invalid_argument) << length;
  }
  EXPECT_THROW(Unit::fromBytes("x" + bytes.substr(1)), std::invalid_argument);
  const Unit behindTheLast{.partition = 5, .numPartitions = 5};
  EXPECT_THROW(Unit::fromBytes(behindTheLast.toBytes()), std::invalid_argument);
}

}  // namespace
}  // namespace kv::runtime
