#include "source/memory/cutOf.h"

#include <fmt/core.h>

#include <string>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

[[noreturn]] void refusePartitions(std::string reason) {
  errors::raiseStep("KALVEX:datastore:Partitions", {std::move(reason)});
}

}  // namespace

PositionCut cutOf(std::int64_t rows, std::int64_t rowBytes, const CutRequest& request) {
  if (rows < 0 || rows > kMaxPositions) {
    errors::raiseStep("KALVEX:datastore:TooManyRows",
                      {std::to_string(rows), std::to_string(kMaxPositions)});
  }
  if (request.partitionRows < 0) {
    refusePartitions(fmt::format("a partition has at least 1 row, got {}", request.partitionRows));
  }
  if (request.sizes.empty()) {
    return request.partitionRows > 0 ? PositionCut(rows, request.partitionRows)
                                     : PositionCut::ofRows(rows, rowBytes);
  }
  std::int64_t left = rows;
  for (const std::int64_t size : request.sizes) {
    if (size < 0 || size > left) {
      refusePartitions(size < 0 ? fmt::format("a partition has at least 0 rows, got {}", size)
                                : fmt::format("the sizes are more than the {} rows", rows));
    }
    left -= size;
  }
  if (left > 0) {
    refusePartitions(fmt::format("the sizes are {} fewer than the {} rows", left, rows));
  }
  return PositionCut(request.sizes);
}

}  // namespace kv::runtime
