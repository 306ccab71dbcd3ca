#include "column/pieces.h"

namespace kv::runtime {

namespace {

constexpr std::int64_t kTextBytes = 16;

}  // namespace

std::int64_t pieceRows(std::span<const ElementType> types) {
  std::int64_t rowBytes = 0;
  for (const ElementType type : types) {
    rowBytes +=
        type == ElementType::String ? kTextBytes : static_cast<std::int64_t>(elementSize(type));
  }
  std::int64_t rows = kPieceRows;
  while (rows > 1 && rows * rowBytes >= kPieceBytes) {
    rows /= 2;
  }
  return rows;
}

}  // namespace kv::runtime
