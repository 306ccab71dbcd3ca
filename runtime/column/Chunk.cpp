#include "kv/runtime/Chunk.h"

#include <cassert>
#include <utility>

#include "column/pool.h"

namespace kv::runtime {

RowOrdinals::RowOrdinals(std::int64_t first, std::int64_t rows) : first_(first), rows_(rows) {}

RowOrdinals::RowOrdinals(std::shared_ptr<const OrdinalList> list)
    : first_(0), rows_(static_cast<std::int64_t>(list->size())), list_(std::move(list)) {}

RowOrdinals RowOrdinals::slice(std::int64_t first, std::int64_t count) const {
  assert(first >= 0 && count >= 0 && first + count <= rows_);
  RowOrdinals part = *this;
  part.first_ += first;
  part.rows_ = count;
  return part;
}

RowOrdinals RowOrdinals::select(const std::vector<std::int64_t>& kept) const {
  auto list = std::make_shared<OrdinalList>(currentResource());
  list->reserve(kept.size());
  for (const std::int64_t row : kept) {
    list->push_back(at(row));
  }
  return RowOrdinals(std::move(list));
}

std::int64_t Chunk::byteSize() const {
  std::int64_t bytes = 0;
  for (const Column& column : columns) {
    bytes += column.byteSize();
  }
  return bytes;
}

}  // namespace kv::runtime
