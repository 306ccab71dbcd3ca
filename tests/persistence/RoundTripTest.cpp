#include <gtest/gtest.h>

#include "LoadingSession.h"

namespace kv::test {
namespace {

TEST(RoundTrip, WhatWasLoadedIsSavedAsTheSameBytes) {
  {
    LoadingSession session;
    const std::string bytes = session.save(session.graph());
    EXPECT_EQ(session.outcomeOf(bytes), "loaded");
    EXPECT_EQ(session.takeUserCalls(), 0u);
    EXPECT_EQ(session.save(session.load(bytes)), bytes);
  }
  EXPECT_EQ(host::ledger().objects, 0u);
}

}  // namespace
}  // namespace kv::test
