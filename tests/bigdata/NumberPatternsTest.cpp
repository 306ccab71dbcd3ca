#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>
#include <random>

#include "CoreSession.h"
#include "ki/conversions.h"
#include "support/Seed.h"
#include "support/Worlds.h"

namespace bigdata {

namespace {

using kv::host::makeDouble;

// The expected results of number conversions, computed from the bits alone, without floating point.

constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
constexpr std::uint64_t kFraction = (std::uint64_t{1} << 52) - 1;
constexpr int kBias = 1023;

/// The whole part of a double as a count; 2^63 for NaN; nothing from 2^64 up or from -1 down.
std::optional<std::uint64_t> countOf(std::uint64_t bits) {
  const int exponent = static_cast<int>((bits & ~kSign) >> 52);
  const std::uint64_t significand = (bits & kFraction) | (kFraction + 1);
  if (exponent == 2047 && (bits & kFraction) != 0) {
    return kSign;
  }
  if (exponent < kBias) {
    return 0;
  }
  if ((bits & kSign) != 0 || exponent >= kBias + 64) {
    return std::nullopt;
  }
  const int shift = exponent - kBias - 52;
  return shift < 0 ? significand >> -shift : significand << shift;
}

/// The bits of the double nearest to a count; of two, the one with the even fraction.
std::uint64_t nearestDouble(std::uint64_t count) {
  if (count == 0) {
    return 0;
  }
  const int top = 63 - std::countl_zero(count);
  std::uint64_t significand = count << (63 - top) >> 11;
  const std::uint64_t rest = count << (63 - top) & 2047;
  significand += rest > 1024 || (rest == 1024 && (significand & 1) != 0) ? 1 : 0;
  // Without the leading one, which a carry out of the fraction turns into the next exponent.
  return (static_cast<std::uint64_t>(kBias + top) << 52) + (significand - (kFraction + 1));
}

class NumberPatterns : public CoreSession {
 protected:
  static void check(std::uint64_t bits) {
    const Value number = makeDouble(std::bit_cast<double>(bits));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(ki::toDouble(number.get())), bits);
    ASSERT_EQ(ki::toLogical(number.get()), (bits & ~kSign) != 0);
    std::optional<std::uint64_t> count;
    const std::string error = errorOf([&] { count = ki::toSize(number.get()); });
    ASSERT_EQ(count, countOf(bits));
    ASSERT_EQ(error, count ? "no error"
                           : "KALVEX:validateattributes:invalidType | Input | scalar size_t | "
                             "1x1 double");
    const Value back = ki::toArray(static_cast<std::size_t>(bits));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(kxGetScalar(back.get())), nearestDouble(bits));
  }
};

TEST_F(NumberPatterns, AtTheEdgesConvertAsTheirBitsSay) {
  for (const double edge : {0.0, 2.7, 1.0, 4503599627370497.5, 9007199254740993.0,
                            std::ldexp(1, 63), std::ldexp(1, 64), std::nextafter(1.0, 0.0), 5e-324,
                            std::nextafter(std::ldexp(1, 64), 0.0), HUGE_VAL, std::nan("")}) {
    SCOPED_TRACE(edge);
    check(std::bit_cast<std::uint64_t>(edge));
    check(std::bit_cast<std::uint64_t>(-edge));
  }
  for (const std::uint64_t count : {kSign + 1024, kSign + 1025, kSign + 3072, ~std::uint64_t{0}}) {
    SCOPED_TRACE(count);
    check(count);
  }
}

/// Half of them have a size between 1/4 and 2^67, around the bounds of counts.
TEST_F(NumberPatterns, AtRandomConvertAsTheirBitsSay) {
  const std::size_t patterns = kv::test::sizes().patterns;
  std::mt19937_64 random(kv::test::drawSeed());
  for (std::size_t i = 0; i < patterns; ++i) {
    std::uint64_t bits = random();
    if (i % 2 == 1) {
      bits = (bits & (kSign | kFraction)) | ((kBias - 2 + random() % 69) << 52);
    }
    SCOPED_TRACE(bits);
    check(bits);
    if (HasFatalFailure()) {
      return;
    }
  }
}

}  // namespace
}  // namespace bigdata
