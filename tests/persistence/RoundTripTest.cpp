#include <gmock/gmock.h>

#include "LoadingSession.h"

namespace kv::test {

namespace {

TEST(RoundTrip, ALoadedValueIsSavedAsTheSameBytes) {
  {
    LoadingSession session;
    const std::string bytes = session.save(session.graph());
    EXPECT_EQ(session.outcomeOf(bytes), "loaded");
    EXPECT_EQ(session.takeUserCalls(), 0u);
    EXPECT_EQ(session.save(session.load(bytes)), bytes);
  }
  EXPECT_EQ(host::ledger().objects, 0u);
}

/// A value with many references is written several times instead of being refused.
TEST(RoundTrip, ValuesWithManyReferencesAreLoaded) {
  LoadingSession session;
  const auto cellOf = [](std::size_t count, const Value& element) {
    std::vector<Value> elements;
    for (std::size_t i = 0; i < count; ++i) {
      elements.push_back(matrix::sharedCopy(element.get()));
    }
    return host::makeCell(std::move(elements));
  };
  const Value often = cellOf(1000, cellOf(1000, host::makeDouble(1)));
  const Value again = session.load(session.save(often));
  EXPECT_EQ(kxGetNumberOfElements(kxGetCell(again.get(), 999)), 1000u);
  Value diamond = cellOf(2, host::makeDouble(1));
  for (int depth = 0; depth < 40; ++depth) {
    diamond = cellOf(2, diamond);
  }
  EXPECT_THAT(bigdata::errorOf([&] { session.save(diamond); }),
              testing::StartsWith("KALVEX:save:NotSaveable"));
}

}  // namespace
}  // namespace kv::test
