#include "kernel/blockCasts.h"

#include <array>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "column/elementTypes.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

template <ElementType from, ElementType to>
constexpr bool isPromotion() {
  if (from == to || to == ElementType::Logical || from == ElementType::Logical) {
    return from != to;
  }
  if (isFloating(to)) {
    return to == ElementType::Double || !isFloating(from);
  }
  if (isFloating(from)) {
    return false;
  }
  constexpr std::size_t kWidthFrom = sizeof(ElementOf<from>);
  constexpr std::size_t kWidthTo = sizeof(ElementOf<to>);
  return kWidthFrom < kWidthTo && (isSigned(to) || !isSigned(from));
}

template <ElementType from, ElementType to>
void castLoop(const void* input, void* output, std::size_t count) {
  const auto* __restrict source = static_cast<const ElementOf<from>*>(input);
  auto* __restrict target = static_cast<ElementOf<to>*>(output);
  for (std::size_t i = 0; i < count; ++i) {
    if constexpr (to == ElementType::Logical) {
      target[i] = source[i] != 0 ? 1 : 0;
    } else {
      target[i] = static_cast<ElementOf<to>>(source[i]);
    }
  }
}

template <std::size_t from, std::size_t to>
constexpr BlockCast castOf() {
  constexpr auto kSource = static_cast<ElementType>(from);
  constexpr auto kTarget = static_cast<ElementType>(to);
  if constexpr (isPromotion<kSource, kTarget>()) {
    return &castLoop<kSource, kTarget>;
  }
  return nullptr;
}

constexpr std::size_t kTypes = std::tuple_size_v<NumericTypes>;

template <std::size_t from, std::size_t... to>
constexpr std::array<BlockCast, kTypes> castsFrom(std::index_sequence<to...>) {
  return {castOf<from, to>()...};
}

template <std::size_t... from>
constexpr auto castTable(std::index_sequence<from...>) {
  return std::array{castsFrom<from>(std::make_index_sequence<kTypes>())...};
}

constexpr auto kCasts = castTable(std::make_index_sequence<kTypes>());

void timesToDouble(const void* input, void* output, std::size_t count) {
  const auto* __restrict source = static_cast<const std::int64_t*>(input);
  auto* __restrict target = static_cast<double*>(output);
  for (std::size_t i = 0; i < count; ++i) {
    target[i] = source[i] == kNaT ? std::numeric_limits<double>::quiet_NaN()
                                  : static_cast<double>(source[i]);
  }
}

}  // namespace

BlockCast blockCast(ElementType from, ElementType to) {
  if (from == ElementType::String || to == ElementType::String) {
    return nullptr;
  }
  if (isTime(from)) {
    return to == ElementType::Double ? &timesToDouble : nullptr;
  }
  if (isTime(to)) {
    return blockCast(from, ElementType::Int64);
  }
  return kCasts[indexOf(from)][indexOf(to)];
}

}  // namespace kv::runtime
