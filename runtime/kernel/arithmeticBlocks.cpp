// Arithmetic on one element, written so that the loops around it vectorise and no input can trap:
// integers wrap instead of overflowing, and the two divisions that a processor refuses (by zero,
// and of the smallest integer by -1) are handled explicitly.

#include <cmath>
#include <concepts>
#include <type_traits>

#include "kernel/blockLoops.h"
#include "kernel/elementBlocks.h"

namespace kv::runtime {

namespace {

/// Integers are computed in `wide` types so that they wrap: unsigned, and at least as wide as int,
/// because narrower types would be promoted to int, which may overflow.
template <class T>
using Wide = std::make_unsigned_t<std::common_type_t<T, int>>;

template <std::integral T>
auto wide(T value) {
  return static_cast<Wide<T>>(value);
}

struct Plus {
  template <class T>
  static T apply(T a, T b) {
    if constexpr (std::integral<T>) {
      return static_cast<T>(wide(a) + wide(b));
    } else {
      return a + b;
    }
  }
};

struct Minus {
  template <class T>
  static T apply(T a, T b) {
    if constexpr (std::integral<T>) {
      return static_cast<T>(wide(a) - wide(b));
    } else {
      return a - b;
    }
  }
};

struct Times {
  template <class T>
  static T apply(T a, T b) {
    if constexpr (std::integral<T>) {
      return static_cast<T>(wide(a) * wide(b));
    } else {
      return a * b;
    }
  }
};

struct Rdivide {
  template <std::floating_point T>
  static T apply(T a, T b) {
    return a / b;
  }
};

struct Uminus {
  template <class T>
  static T apply(T a) {
    if constexpr (std::integral<T>) {
      return static_cast<T>(0U - wide(a));
    } else {
      return -a;
    }
  }
};

struct Power {
  template <std::floating_point T>
  static T apply(T a, T b) {
    return b == 2 ? a * a : std::pow(a, b);
  }

  /// By repeated squaring. For b < 0 the result is meaningless; the evaluation refuses it before.
  template <std::integral T>
  static T apply(T a, T b) {
    auto base = wide(a);
    decltype(base) result = 1;
    for (auto exponent = wide(b); exponent != 0; exponent >>= 1U) {
      if ((exponent & 1U) != 0) {
        result *= base;
      }
      base *= base;
    }
    return static_cast<T>(result);
  }
};

/// The remainder with the sign of the divisor, like Python's `%`.
struct Mod {
  template <std::floating_point T>
  static T apply(T a, T b) {
    const T remainder = std::fmod(a, b);
    if (b == 0) {
      return remainder;
    }
    if (remainder == 0) {
      return std::copysign(T{0}, b);
    }
    return (b < 0) != (remainder < 0) ? remainder + b : remainder;
  }

  template <std::integral T>
  static T apply(T a, T b) {
    if (b == 0) {
      return 0;
    }
    if constexpr (std::is_signed_v<T>) {
      if (b == -1) {
        return 0;  // the smallest integer divided by -1 traps
      }
      const T remainder = static_cast<T>(a % b);
      const bool isOpposite = remainder != 0 && (remainder < 0) != (b < 0);
      return isOpposite ? static_cast<T>(remainder + b) : remainder;
    } else {
      return static_cast<T>(a % b);
    }
  }
};

template <class T>
bool isNan(T value) {
  if constexpr (std::floating_point<T>) {
    return value != value;
  } else {
    return false;
  }
}

/// The smaller of two; NaN if either is NaN.
struct Minimum {
  template <class T>
  static T apply(T a, T b) {
    return (a < b) || isNan(a) ? a : b;
  }
};

/// The larger of two; NaN if either is NaN.
struct Maximum {
  template <class T>
  static T apply(T a, T b) {
    return (a > b) || isNan(a) ? a : b;
  }
};

}  // namespace

// For logical values, plus is "or", times is "and", and minus isn't defined.
const BlockTable kPlusBlocks =
    binaryTimes<Plus>(binaryLogical<Maximum>(binaryIntegers<Plus>(binaryFloating<Plus>())));
const BlockTable kMinusBlocks = binaryTimes<Minus>(binaryIntegers<Minus>(binaryFloating<Minus>()));
const BlockTable kTimesBlocks =
    binaryTimes<Times>(binaryLogical<Minimum>(binaryIntegers<Times>(binaryFloating<Times>())));
const BlockTable kRdivideBlocks = binaryFloating<Rdivide>();
const BlockTable kPowerBlocks = binaryIntegers<Power>(binaryFloating<Power>());
const BlockTable kModBlocks = binaryIntegers<Mod>(binaryFloating<Mod>());
const BlockTable kUminusBlocks = unaryTimes<Uminus>(unaryIntegers<Uminus>(unaryFloating<Uminus>()));
const BlockTable kMinimumBlocks = binaryTimes<Minimum>(
    binaryLogical<Minimum>(binaryIntegers<Minimum>(binaryFloating<Minimum>())));
const BlockTable kMaximumBlocks = binaryTimes<Maximum>(
    binaryLogical<Maximum>(binaryIntegers<Maximum>(binaryFloating<Maximum>())));

}  // namespace kv::runtime
