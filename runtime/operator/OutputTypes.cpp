#include "operator/OutputTypes.h"

#include <fmt/core.h>

#include <algorithm>

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

void OutputTypes::add(std::string_view label, std::size_t output, ElementType type,
                      const GivenRows& rows) {
  seen_.resize(std::max(seen_.size(), output + 1));
  std::optional<Seen>& seen = seen_[output];
  if (!seen) {
    seen = Seen{type, rows};
  } else if (seen->type != type) {
    errors::raiseStep("KALVEX:array:ChunkTypes",
                      {std::string(label), std::string(elementTypeName(seen->type)),
                       seen->rows.describe(), std::string(elementTypeName(type)), rows.describe()});
  }
}

}  // namespace kv::runtime
