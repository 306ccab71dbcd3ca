#include "value/counts.h"

#include <limits>
#include <string>

#include "kv/host/errors.h"

namespace kv::host {

std::size_t columnCount(std::span<const std::size_t> dimensions, std::size_t elementBytes) {
  constexpr auto kLimit = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
  std::size_t bytes = elementBytes;
  for (const std::size_t extent : dimensions) {
    if (__builtin_mul_overflow(bytes, extent, &bytes) || bytes > kLimit) {
      raise("KALVEX:CountTooLarge",
            {std::to_string(extent), std::to_string(kLimit / elementBytes)});
    }
  }
  std::size_t columns = 1;
  for (const std::size_t extent : dimensions.subspan(1)) {
    columns *= extent;
  }
  return columns;
}

std::size_t elementCount(std::size_t rows, std::size_t columns) {
  constexpr std::size_t kLargestElement = 64;
  const std::size_t dimensions[] = {rows, columns};
  return rows * columnCount(dimensions, kLargestElement);
}

std::span<const std::size_t> trimmed(std::span<const std::size_t> dimensions) noexcept {
  while (dimensions.size() > 2 && dimensions.back() == 1) {
    dimensions = dimensions.first(dimensions.size() - 1);
  }
  return dimensions;
}

}  // namespace kv::host
