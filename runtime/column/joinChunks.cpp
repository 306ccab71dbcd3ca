#include "column/joinChunks.h"

#include <algorithm>
#include <utility>

#include "column/ResultBuffer.h"
#include "column/concatenate.h"
#include "column/elementTypes.h"

namespace kv::runtime {

namespace {

bool isPlain(const Column& column) {
  return column.type() != ElementType::String && !column.isNullable();
}

Column join(std::vector<Column> parts) {
  if (!std::ranges::all_of(parts, isPlain)) {
    return concatenate(parts);
  }
  const ElementType type = parts.front().type();
  std::int64_t rows = 0;
  for (const Column& part : parts) {
    rows += part.rows();
  }
  ResultBuffer buffer(rows * static_cast<std::int64_t>(elementSize(type)));
  for (Column& part : parts) {
    visitNumeric(type, [&]<class T>() {
      const auto values = part.values<T>();
      buffer.append(values.data(), static_cast<std::int64_t>(values.size_bytes()));
    });
    part = emptyColumn(type);
  }
  return {type, rows, buffer.finish()};
}

}  // namespace

Chunk joinChunks(std::vector<Chunk> chunks) {
  std::int64_t bytes = 0;
  for (const Chunk& chunk : chunks) {
    bytes += chunk.byteSize();
  }
  if (bytes < kLargeResultBytes) {
    const bool isTable = !chunks.empty() && chunks.front().names != nullptr;
    return isTable ? concatenateTables(chunks) : concatenateArrays(chunks);
  }
  std::erase_if(chunks, [](const Chunk& chunk) { return chunk.rows() == 0; });
  Chunk whole{.names = chunks.front().names, .trailing = chunks.front().trailing};
  for (std::size_t i = 0; i < chunks.front().columns.size(); ++i) {
    std::vector<Column> parts;
    for (Chunk& chunk : chunks) {
      parts.push_back(std::exchange(chunk.columns[i], emptyColumn(ElementType::Double)));
    }
    whole.columns.push_back(join(std::move(parts)));
  }
  whole.ordinals = RowOrdinals(0, whole.columns.front().rows());
  return whole;
}

}  // namespace kv::runtime
