// Most cuts are regular: they need no list, so that an array of 10^12 generated rows costs nothing.
// Each cut has one form: ends that are regular are never listed.

#include "kv/runtime/PositionCut.h"

#include <fmt/core.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <iterator>
#include <numeric>
#include <span>
#include <utility>

namespace kv::runtime {

namespace {

/// The size of all partitions but the last, if they have one size; 0 otherwise.
std::int64_t regularSize(std::span<const std::int64_t> ends) {
  const std::int64_t rows = ends.back();
  const std::int64_t size = ends.front();
  const auto count = static_cast<std::int64_t>(ends.size());
  if (rows == 0 || size == 0) {
    return count == 1 ? 1 : 0;
  }
  if (count != (rows + size - 1) / size) {
    return 0;
  }
  for (std::int64_t i = 0; i + 1 < count; ++i) {
    if (ends[static_cast<std::size_t>(i)] != (i + 1) * size) {
      return 0;
    }
  }
  return size;
}

std::vector<std::int64_t> endsOf(const PositionCut& cut) {
  std::vector<std::int64_t> ends(static_cast<std::size_t>(cut.numPartitions()));
  for (std::size_t i = 0; i < ends.size(); ++i) {
    ends[i] = cut.end(static_cast<std::int64_t>(i));
  }
  return ends;
}

std::vector<std::int64_t> summed(const std::vector<std::int64_t>& partitionRows) {
  std::vector<std::int64_t> ends(partitionRows.size());
  std::partial_sum(partitionRows.begin(), partitionRows.end(), ends.begin());
  return ends;
}

}  // namespace

PositionCut::PositionCut(std::int64_t rows, std::int64_t partitionRows)
    : rows_(rows), partitionRows_(std::clamp<std::int64_t>(rows, 1, partitionRows)) {
  assert(rows >= 0 && rows <= kMaxPositions && partitionRows >= 1);
}

PositionCut::PositionCut(const std::vector<std::int64_t>& partitionRows)
    : PositionCut(std::accumulate(partitionRows.begin(), partitionRows.end(), std::int64_t{0}),
                  summed(partitionRows)) {
  assert(!partitionRows.empty() && rows_ <= kMaxPositions);
  assert(std::ranges::all_of(partitionRows, [](std::int64_t rows) { return rows >= 0; }));
}

PositionCut::PositionCut(std::int64_t rows, std::vector<std::int64_t> ends)
    : rows_(rows), partitionRows_(regularSize(ends)) {
  if (partitionRows_ == 0) {
    ends_ = std::make_shared<const std::vector<std::int64_t>>(std::move(ends));
  }
}

PositionCut PositionCut::ofRows(std::int64_t rows, std::int64_t rowBytes) {
  const auto fitting =
      static_cast<std::uint64_t>(kPartitionBytes / std::max<std::int64_t>(rowBytes, 1));
  const auto most = static_cast<std::int64_t>(std::bit_floor(std::max<std::uint64_t>(fitting, 1)));
  return {rows, std::min(kPartitionRows, most)};
}

std::int64_t PositionCut::numPartitions() const {
  if (ends_) {
    return std::ssize(*ends_);
  }
  return std::max<std::int64_t>(1, (rows_ + partitionRows_ - 1) / partitionRows_);
}

std::int64_t PositionCut::begin(std::int64_t partition) const {
  if (ends_) {
    return partition == 0 ? 0 : (*ends_)[static_cast<std::size_t>(partition - 1)];
  }
  return partition * partitionRows_;
}

std::int64_t PositionCut::end(std::int64_t partition) const {
  assert(partition >= 0 && partition < numPartitions());
  return ends_ ? (*ends_)[static_cast<std::size_t>(partition)]
               : std::min(rows_, (partition + 1) * partitionRows_);
}

std::int64_t PositionCut::partitionOf(std::int64_t position) const {
  assert(position >= 0 && position < rows_);
  return ends_ ? std::ranges::upper_bound(*ends_, position) - ends_->begin()
               : position / partitionRows_;
}

PositionCut PositionCut::refined(const PositionCut& other) const {
  assert(rows_ == other.rows_);
  if (!ends_ && !other.ends_ && rows_ > 0) {
    const auto [fine, coarse] = std::minmax(partitionRows_, other.partitionRows_);
    if (coarse % fine == 0 || coarse >= rows_) {
      return {rows_, fine};
    }
  }
  std::vector<std::int64_t> ends;
  std::ranges::set_union(endsOf(*this), endsOf(other), std::back_inserter(ends));
  return {rows_, std::move(ends)};
}

std::string PositionCut::rowSpaceOf(std::int64_t rows) {
  return fmt::format("positions 0 to {}", rows - 1);
}

void PositionCut::write(errors::ByteWriter& bytes) const {
  bytes.number(rows_);
  bytes.number(partitionRows_);
  if (ends_) {
    bytes.number<std::uint64_t>(ends_->size());
    for (const std::int64_t end : *ends_) {
      bytes.number(end);
    }
  }
}

PositionCut PositionCut::read(errors::ByteReader& bytes) {
  const auto rows = bytes.number<std::int64_t>();
  const auto partitionRows = bytes.number<std::int64_t>();
  if (rows < 0 || rows > kMaxPositions || partitionRows < 0) {
    bytes.refuse();
  }
  if (partitionRows > 0) {
    return {rows, partitionRows};
  }
  std::vector<std::int64_t> ends(bytes.count(sizeof(std::int64_t)));
  for (std::int64_t& end : ends) {
    end = bytes.number<std::int64_t>();
  }
  if (ends.empty() || ends.front() < 0 || ends.back() != rows || !std::ranges::is_sorted(ends)) {
    bytes.refuse();
  }
  return {rows, std::move(ends)};
}

bool PositionCut::operator==(const PositionCut& other) const {
  return rows_ == other.rows_ && partitionRows_ == other.partitionRows_ &&
         (ends_ == other.ends_ || (ends_ && other.ends_ && *ends_ == *other.ends_));
}

}  // namespace kv::runtime
