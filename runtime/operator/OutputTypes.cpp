#include "operator/OutputTypes.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "column/arrays.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

GivenRows GivenRows::of(const Chunk& chunk) {
  const std::int64_t rows = chunk.rows();
  if (rows == 0) {
    return {chunk.partition, 0, 0};
  }
  return {chunk.partition, chunk.ordinals.at(0), chunk.ordinals.at(rows - 1) + 1};
}

std::string GivenRows::describe() const {
  return fmt::format("partition {}, rows {} to {}", partition + 1, first + 1, last);
}

void OutputTypes::add(std::string_view label, std::size_t output, const ArrayType& type,
                      const GivenRows& rows) {
  seen_.resize(std::max(seen_.size(), output + 1));
  std::optional<Seen>& seen = seen_[output];
  if (!seen) {
    seen = Seen{type, rows};
    return;
  }
  const auto refuse = [&](const char* id, std::string first, std::string other) {
    errors::raiseStep(id, {std::string(label), std::move(first), seen->rows.describe(),
                           std::move(other), rows.describe()});
  };
  if (seen->type.element != type.element) {
    refuse("KALVEX:array:ChunkTypes", std::string(elementTypeName(seen->type.element)),
           std::string(elementTypeName(type.element)));
  }
  if (seen->type.trailing != type.trailing) {
    refuse("KALVEX:array:ChunkSizes", describeSize(seen->type.trailing),
           describeSize(type.trailing));
  }
}

}  // namespace kv::runtime
