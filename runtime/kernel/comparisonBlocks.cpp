#include "kernel/blockLoops.h"
#include "kernel/elementBlocks.h"

namespace kv::runtime {

namespace {

// Bitwise operators on purpose: they leave no branch in the loops. All but Differs are false for
// NaN.

struct Eq {
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return a == b;
  }
};

struct Ne {
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return static_cast<std::uint8_t>((a < b) | (a > b));
  }
};

struct Differs {
  static constexpr std::uint8_t kOfMissing = 1;
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return a != b;
  }
};

struct Lt {
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return a < b;
  }
};

struct Le {
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return a <= b;
  }
};

struct Gt {
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return a > b;
  }
};

struct Ge {
  template <class T>
  static std::uint8_t apply(T a, T b) {
    return a >= b;
  }
};

struct And {
  static std::uint8_t apply(std::uint8_t a, std::uint8_t b) {
    return static_cast<std::uint8_t>(a & b);
  }
};

struct Or {
  static std::uint8_t apply(std::uint8_t a, std::uint8_t b) {
    return static_cast<std::uint8_t>(a | b);
  }
};

struct Xor {
  static std::uint8_t apply(std::uint8_t a, std::uint8_t b) {
    return static_cast<std::uint8_t>(a ^ b);
  }
};

struct Not {
  static std::uint8_t apply(std::uint8_t a) { return static_cast<std::uint8_t>(a ^ 1U); }
};

template <class Op>
constexpr BlockTable comparison() {
  return binaryTimes<Op>(binaryLogical<Op>(binaryIntegers<Op>(binaryFloating<Op>())));
}

}  // namespace

const BlockTable kEqBlocks = comparison<Eq>();
const BlockTable kNeBlocks = comparison<Ne>();
const BlockTable kDiffersBlocks = comparison<Differs>();
const BlockTable kLtBlocks = comparison<Lt>();
const BlockTable kLeBlocks = comparison<Le>();
const BlockTable kGtBlocks = comparison<Gt>();
const BlockTable kGeBlocks = comparison<Ge>();
const BlockTable kAndBlocks = binaryLogical<And>();
const BlockTable kOrBlocks = binaryLogical<Or>();
const BlockTable kXorBlocks = binaryLogical<Xor>();
const BlockTable kNotBlocks = unaryLogical<Not>();

}  // namespace kv::runtime
