#include "column/arrays.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <utility>

namespace kv::runtime {

namespace {

std::int64_t sizeAt(const Dimensions& dimensions, std::size_t at) {
  return at < dimensions.size() ? dimensions[at] : 1;
}

}  // namespace

std::size_t columnsIn(const Dimensions& trailing) {
  std::size_t columns = 1;
  for (const std::int64_t size : trailing) {
    columns *= static_cast<std::size_t>(size);
  }
  return columns;
}

Dimensions withoutTrailingOnes(Dimensions dimensions) {
  while (!dimensions.empty() && dimensions.back() == 1) {
    dimensions.pop_back();
  }
  return dimensions;
}

std::vector<std::size_t> dimensionsOf(const Chunk& array) {
  std::vector<std::size_t> dimensions{static_cast<std::size_t>(array.rows())};
  for (const std::int64_t size : array.trailing) {
    dimensions.push_back(static_cast<std::size_t>(size));
  }
  dimensions.resize(std::max<std::size_t>(dimensions.size(), 2), 1);
  return dimensions;
}

std::string describeSize(const Dimensions& trailing) {
  std::string size = trailing.empty() ? "n-by-1" : "n";
  for (const std::int64_t dimension : trailing) {
    size += fmt::format("-by-{}", dimension);
  }
  return size;
}

Chunk emptyArray(const ArrayType& type) {
  return {.columns = std::vector(columnsIn(type.trailing), emptyColumn(type.element)),
          .trailing = type.trailing};
}

std::optional<Dimensions> expanded(const Dimensions& a, const Dimensions& b) {
  Dimensions both(std::max(a.size(), b.size()));
  for (std::size_t at = 0; at < both.size(); ++at) {
    const std::int64_t ofA = sizeAt(a, at);
    const std::int64_t ofB = sizeAt(b, at);
    if (ofA != ofB && ofA != 1 && ofB != 1) {
      return std::nullopt;
    }
    both[at] = ofA == 1 ? ofB : ofA;
  }
  return both;
}

std::vector<std::size_t> expandedColumns(const Dimensions& from, const Dimensions& to) {
  assert(expanded(from, to) == to);
  std::vector<std::size_t> columns{0};
  std::size_t stride = 1;
  for (std::size_t at = 0; at < to.size(); ++at) {
    const std::size_t step = sizeAt(from, at) == 1 ? 0 : stride;
    const std::size_t inner = columns.size();
    for (std::size_t place = 1; place < static_cast<std::size_t>(to[at]); ++place) {
      for (std::size_t i = 0; i < inner; ++i) {
        columns.push_back(columns[i] + place * step);
      }
    }
    stride *= static_cast<std::size_t>(sizeAt(from, at));
  }
  return columns;
}

std::vector<std::size_t> rowMajorColumns(const Dimensions& trailing) {
  std::vector<std::size_t> order{0};
  std::size_t stride = 1;
  for (const std::int64_t extent : trailing) {
    std::vector<std::size_t> next;
    for (const std::size_t before : order) {
      for (std::size_t i = 0; i < static_cast<std::size_t>(extent); ++i) {
        next.push_back(before + i * stride);
      }
    }
    order = std::move(next);
    stride *= static_cast<std::size_t>(extent);
  }
  return order;
}

bool isOfOneType(const Chunk& array) {
  return std::ranges::all_of(array.columns, [&](const Column& column) {
    return column.type() == array.type() &&
           column.isNullable() == array.columns.front().isNullable();
  });
}

}  // namespace kv::runtime
