#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>

#include "persistence/RefittedFile.h"
#include "runtime/RuntimeSession.h"
#include "save/format.h"
#include "support/Seed.h"
#include "support/Worlds.h"

namespace kv::runtime::test {

namespace {

using host::format::kHeaderBytes;

/// Changes a few places after the header: a byte, or a number into a small one like a reference or
/// a count.
std::string mutated(std::string bytes, std::mt19937_64& random) {
  for (std::size_t left = 1 + random() % 3; left > 0; --left) {
    const std::size_t place = kHeaderBytes + random() % (bytes.size() - kHeaderBytes - 4);
    if (random() % 2 == 0) {
      bytes[place] = static_cast<char>(random());
    } else {
      const auto number = static_cast<std::uint32_t>(random() % 64);
      std::memcpy(bytes.data() + place / 4 * 4, &number, sizeof(number));
    }
  }
  return kv::test::withFittingHeader(bytes);
}

struct Outcomes {
  std::size_t loaded = 0;
  std::size_t refused = 0;
};

/// Saved arrays of the runtime with random changes and repaired checksums, which are loaded with
/// trust.
class MutatedGraphs : public RuntimeSession {
 protected:
  /// An array that reads, filters, computes and aggregates.
  Value array() {
    const Value t = table({"x,y\n1,2\n3,4\n", "x,y\n5,6\n"});
    const Value x = column(t, "x");
    const Value large = filter(element("gt", x, 1.5), element("times", x, column(t, "y")));
    return element("plus", aggregate("sum", large), 1);
  }

  void load(const std::string& bytes, Outcomes& outcomes) {
    Value value;
    try {
      value = session.loadBytes(bytes, true);
      ++outcomes.loaded;
      session.saveBytes(value.get());
    } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
      const host::ErrorRecord error = host::errorRecord(envelope);
      ++outcomes.refused;
      EXPECT_TRUE(error.identifier == "KALVEX:load:Corrupt" ||
                  error.identifier == "KALVEX:load:UnknownClass")
          << error.identifier << ": " << error.message;
      return;
    }
    use(value);
  }

  /// Plans and evaluates a loaded value, which may fail with any id of the product.
  void use(const Value& value) {
    for (const char* name : {"kv.explain", "gather"}) {
      try {
        host::call(kcos::NameRef::of(std::string_view(name)), {value.get()});
        ++used_;
      } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
        ++failed_;
        const std::string id = host::errorRecord(envelope).identifier;
        EXPECT_TRUE(id.starts_with("KALVEX:") && id != "KALVEX:NativeException") << envelope.what();
      }
    }
  }

  std::size_t used_ = 0;
  std::size_t failed_ = 0;
};

TEST_F(MutatedGraphs, AreLoadedOrRefusedAndLeaveNothing) {
  std::mt19937_64 random(kv::test::drawSeed());
  const std::string bytes = session.saveBytes(array().get());
  session.collect();
  const std::size_t before = session.liveObjects();
  Outcomes outcomes;
  for (std::size_t i = 0; i < kv::test::sizes().modelSteps / 10; ++i) {
    load(mutated(bytes, random), outcomes);
    session.clearWarnings();
  }
  session.collect();
  EXPECT_EQ(session.liveObjects(), before);
  EXPECT_GT(outcomes.loaded, 0u);
  EXPECT_GT(outcomes.refused, 0u);
  std::printf(
      "mutated: %zu bytes, %zu changed files: %zu refused, %zu loaded; of their "
      "plans and evaluations %zu failed, %zu went through\n",
      bytes.size(), outcomes.loaded + outcomes.refused, outcomes.refused, outcomes.loaded, failed_,
      used_);
}

}  // namespace
}  // namespace kv::runtime::test
