#include <gmock/gmock.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "LoadingSession.h"
#include "kv/host/errors.h"
#include "save/format.h"
#include "support/TempFolder.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

using Torvane::KException::KExceptionEnvelope;

/// Under stress only every 97th place is tested, because every error is an object.
std::size_t stride() { return isStressed() ? 97 : 1; }

bool isSection(const std::string& tag) {
  return tag == "HEAD" ||
         std::ranges::find(host::format::kSectionTags, tag) != host::format::kSectionTags.end();
}

/// True if a load is refused as corrupt, with a section, an offset within the file and a reason, or
/// as of a later format if that is the file's format.
bool isDetected(LoadingSession& session, std::string_view bytes) {
  try {
    session.load(bytes);
  } catch (const KExceptionEnvelope& envelope) {
    const host::ErrorRecord error = host::errorRecord(envelope);
    std::size_t offset = bytes.size() + 1;
    if (error.arguments.size() == 3) {
      const std::string& text = error.arguments[1];
      std::from_chars(text.data(), text.data() + text.size(), offset);
    }
    if (error.identifier == "KALVEX:load:LaterFormat") {
      std::uint32_t version = 0;
      std::memcpy(&version, bytes.data() + host::format::kVersionAt, sizeof(version));
      return version > host::format::kVersion && error.arguments.size() == 4;
    }
    return error.identifier == "KALVEX:load:Corrupt" && error.arguments.size() == 3 &&
           isSection(error.arguments[0]) && offset <= bytes.size() && !error.arguments[2].empty();
  }
  return false;
}

/// A saved graph, and the state that must not change when a damaged copy of it is loaded.
class Damage {
 public:
  ~Damage() {
    EXPECT_EQ(session_.liveObjects(), objects_);
    EXPECT_TRUE(session_.isSound());
    EXPECT_EQ(session_.outcomeOf(bytes_), "loaded");
    EXPECT_EQ(session_.takeUserCalls(), 0u);
  }

  const std::string& bytes() const { return bytes_; }

  void check(std::string_view damaged, std::size_t place) {
    ++tried_;
    if (!isDetected(session_, damaged)) {
      ++undetected_;
      ADD_FAILURE() << "not detected: byte " << place;
    }
  }

  void print(const char* what) const {
    std::printf("corruption: %zu %s of %zu bytes, %zu undetected\n", tried_, what, bytes_.size(),
                undetected_);
  }

 private:
  LoadingSession session_;
  const std::string bytes_ = session_.save(session_.graph());
  const std::size_t objects_ = session_.liveObjects();
  std::size_t tried_ = 0;
  std::size_t undetected_ = 0;
};

void expectNothingLeft() {
  const host::Ledger left = host::ledger();
  EXPECT_EQ(left.objects, 0u);
  EXPECT_EQ(left.arrays, 0u);
  EXPECT_EQ(left.payloads, 0u);
}

TEST(Corruption, EveryTruncationIsDetected) {
  {
    Damage damage;
    for (std::size_t length = 0; length < damage.bytes().size(); length += stride()) {
      damage.check(std::string_view(damage.bytes()).substr(0, length), length);
    }
    damage.print("truncations");
  }
  expectNothingLeft();
}

TEST(Corruption, EveryChangeOfABitIsDetected) {
  {
    Damage damage;
    std::string bytes = damage.bytes();
    EXPECT_THAT(bytes.size(), ::testing::AllOf(::testing::Gt(15'000u), ::testing::Lt(30'000u)));
    for (std::size_t place = 0; place < bytes.size(); place += stride()) {
      const char before = bytes[place];
      for (int bit = 0; bit < 8; ++bit) {
        bytes[place] = static_cast<char>(before ^ (1 << bit));
        damage.check(bytes, place);
      }
      bytes[place] = static_cast<char>(~before);
      damage.check(bytes, place);
      bytes[place] = before;
    }
    damage.print("changes of a byte (each bit, and all of them)");
  }
  expectNothingLeft();
}

/// Also for a file followed by a terabyte, which isn't read.
TEST(Corruption, WhatFollowsTheFileIsDetected) {
  Damage damage;
  damage.check(damage.bytes() + '\0', damage.bytes().size());
  damage.check(damage.bytes() + damage.bytes(), damage.bytes().size());
  const TempFolder folder;
  LoadingSession session;
  for (const std::string& bytes : {std::string(), damage.bytes()}) {
    const std::string path = folder.write("long.kv", bytes);
    std::filesystem::resize_file(path, std::uintmax_t{1} << 40);
    EXPECT_THAT(bigdata::errorOf([&] { session.host().load(path, false); }),
                ::testing::StartsWith("KALVEX:load:Corrupt | HEAD"));
  }
}

}  // namespace
}  // namespace kv::test
