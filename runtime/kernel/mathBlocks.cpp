// Mathematical functions of one element. They are computed in single or double, as the type rules
// decide; rounding functions, absolute values and signs also exist for integers and don't convert
// them.

#include <cmath>
#include <concepts>
#include <limits>

#include "kernel/blockLoops.h"
#include "kernel/elementBlocks.h"

namespace kv::runtime {

namespace {

struct Abs {
  template <class T>
  static T apply(T a) {
    if constexpr (std::floating_point<T>) {
      return std::abs(a);
    } else {
      using Unsigned =
          std::make_unsigned_t<T>;  // the smallest integer has no absolute value, so it wraps
      return a < T{1} ? static_cast<T>(Unsigned{0} - static_cast<Unsigned>(a)) : a;
    }
  }
};

struct Sign {
  template <class T>
  static T apply(T a) {
    if constexpr (std::floating_point<T>) {
      return a != a ? a : static_cast<T>(T(a > 0) - T(a < 0));
    } else {
      return static_cast<T>((a > T{0}) - (a < T{0}));
    }
  }
};

struct Sqrt {
  template <class T>
  static T apply(T a) {
    return std::sqrt(a);
  }
};

struct Exp {
  template <class T>
  static T apply(T a) {
    return std::exp(a);
  }
};

struct Log {
  template <class T>
  static T apply(T a) {
    return std::log(a);
  }
};

struct Log2 {
  template <class T>
  static T apply(T a) {
    return std::log2(a);
  }
};

struct Log10 {
  template <class T>
  static T apply(T a) {
    return std::log10(a);
  }
};

struct Sin {
  template <class T>
  static T apply(T a) {
    return std::sin(a);
  }
};

struct Cos {
  template <class T>
  static T apply(T a) {
    return std::cos(a);
  }
};

struct Tan {
  template <class T>
  static T apply(T a) {
    return std::tan(a);
  }
};

struct Floor {
  template <class T>
  static T apply(T a) {
    return std::floor(a);
  }
};

struct Ceil {
  template <class T>
  static T apply(T a) {
    return std::ceil(a);
  }
};

/// To the nearest whole number, halves to the even one.
struct Round {
  template <class T>
  static T apply(T a) {
    return std::nearbyint(a);
  }
};

struct Same {
  template <class T>
  static T apply(T a) {
    return a;
  }
};

struct IsNan {
  template <class T>
  static std::uint8_t apply(T a) {
    return a != a;
  }
};

struct IsFinite {
  template <class T>
  static std::uint8_t apply(T a) {
    return std::abs(a) <= std::numeric_limits<T>::max();
  }
};

/// A rounding function, which doesn't change whole numbers.
template <class Op>
constexpr BlockTable rounding() {
  return unaryLogical<Same>(unaryIntegers<Same>(unaryFloating<Op>()));
}

}  // namespace

const BlockTable kAbsBlocks =
    unaryTimes<Abs>(unaryLogical<Same>(unaryIntegers<Abs>(unaryFloating<Abs>())));
const BlockTable kSignBlocks = unaryIntegers<Sign>(unaryFloating<Sign>());
const BlockTable kSqrtBlocks = unaryFloating<Sqrt>();
const BlockTable kExpBlocks = unaryFloating<Exp>();
const BlockTable kLogBlocks = unaryFloating<Log>();
const BlockTable kLog2Blocks = unaryFloating<Log2>();
const BlockTable kLog10Blocks = unaryFloating<Log10>();
const BlockTable kSinBlocks = unaryFloating<Sin>();
const BlockTable kCosBlocks = unaryFloating<Cos>();
const BlockTable kTanBlocks = unaryFloating<Tan>();
const BlockTable kFloorBlocks = rounding<Floor>();
const BlockTable kCeilBlocks = rounding<Ceil>();
const BlockTable kRoundBlocks = rounding<Round>();
const BlockTable kIsnanBlocks = unaryFloating<IsNan>();
const BlockTable kIsfiniteBlocks = unaryFloating<IsFinite>();

}  // namespace kv::runtime
