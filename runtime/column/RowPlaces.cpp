// A gathered value keeps the places of its rows: the cut of its source, and ordinals where rows
// are missing. By these its rows can flow again with those of the source, in the same partitions
// and chunks.

#include "column/RowPlaces.h"

#include <arrow/buffer.h>

#include <algorithm>
#include <cassert>
#include <functional>
#include <span>
#include <utility>

#include "column/ResultBuffer.h"
#include "column/allocate.h"
#include "column/pool.h"

namespace kv::runtime {

namespace {

/// More rows than a partition has; their sum doesn't overflow.
constexpr std::int64_t kMaxPartitionRows = std::int64_t{1} << 48;

/// True if there is an ordinal for each row, and those of a partition ascend.
bool ascendInEachPartition(std::span<const std::int64_t> ordinals,
                           std::span<const std::int64_t> firstRow) {
  if (ordinals.size() != static_cast<std::size_t>(firstRow.back())) {
    return false;
  }
  for (std::size_t i = 0; i + 1 < firstRow.size(); ++i) {
    const auto begin = static_cast<std::size_t>(firstRow[i]);
    const auto ofPartition =
        ordinals.subspan(begin, static_cast<std::size_t>(firstRow[i + 1]) - begin);
    if (std::ranges::adjacent_find(ofPartition, std::greater_equal()) != ofPartition.end() ||
        (!ofPartition.empty() && ofPartition.front() < 0)) {
      return false;
    }
  }
  return true;
}

/// True if the numbers ascend from 0 to `last`, equal ones included.
bool ascendTo(std::span<const std::int64_t> numbers, std::int64_t last) {
  return !numbers.empty() && numbers.front() == 0 && std::ranges::is_sorted(numbers) &&
         numbers.back() == last;
}

/// True if the chunks of a partition are its first rows, without a gap.
bool startsAtZero(const std::vector<Chunk>& chunks) {
  std::int64_t rows = 0;
  for (const Chunk& chunk : chunks) {
    if (chunk.rows() > 0 && !(chunk.ordinals.isRange() && chunk.ordinals.at(0) == rows)) {
      return false;
    }
    rows += chunk.rows();
  }
  return true;
}

/// The ordinals of all rows, as an Int64 column. Chunks lose theirs, since both together may be
/// more than a memory limit allows.
Column takeOrdinals(std::vector<std::vector<Chunk>>& partitions, std::int64_t rows) {
  constexpr std::int64_t kBytes = sizeof(std::int64_t);
  ResultBuffer ordinals(rows * kBytes);
  for (std::vector<Chunk>& chunks : partitions) {
    for (Chunk& chunk : chunks) {
      auto* next = reinterpret_cast<std::int64_t*>(ordinals.next(chunk.rows() * kBytes));
      for (std::int64_t row = 0; row < chunk.rows(); ++row) {
        *next++ = chunk.ordinals.at(row);
      }
      chunk.ordinals = RowOrdinals(0, chunk.rows());
    }
  }
  return {ElementType::Int64, rows, ordinals.finish()};
}

}  // namespace

std::optional<PositionCut> RowCut::positions() const {
  std::int64_t rows = 0;
  for (const std::int64_t ofPartition : partitionRows) {
    if (ofPartition < 0 || ofPartition > kMaxPositions - rows) {
      return std::nullopt;
    }
    rows += ofPartition;
  }
  return !partitionRows.empty() && source == PositionCut::rowSpaceOf(rows)
             ? std::optional(PositionCut(partitionRows))
             : std::nullopt;
}

RowPlaces RowPlaces::ofPartitions(std::vector<std::vector<Chunk>>& partitions,
                                  std::shared_ptr<const RowCut> cut) {
  RowPlaces places{{0}, std::nullopt, std::move(cut), {}};
  for (const std::vector<Chunk>& chunks : partitions) {
    std::int64_t rows = places.firstRow.back();
    for (const Chunk& chunk : chunks) {
      rows += chunk.rows();
    }
    places.firstRow.push_back(rows);
  }
  if (!std::ranges::all_of(partitions, startsAtZero) || !places.fitCut()) {
    places.ordinals = takeOrdinals(partitions, places.rows());
  }
  return places;
}

bool RowPlaces::fit(std::int64_t rows) const {
  const bool isCut = firstRow.size() == cut->partitionRows.size() + 1 &&
                     std::ranges::all_of(cut->partitionRows, [](std::int64_t ofPartition) {
                       return ofPartition >= 0 && ofPartition <= kMaxPartitionRows;
                     });
  return isCut && ascendTo(firstRow, rows) &&
         (!ordinals || ascendInEachPartition(ordinals->values<std::int64_t>(), firstRow)) &&
         fitCut();
}

/// True if each partition of the cut has the rows that are placed in it.
bool RowPlaces::fitCut() const {
  const auto all = ordinals ? ordinals->values<std::int64_t>() : std::span<const std::int64_t>{};
  for (std::size_t i = 0; i + 1 < firstRow.size(); ++i) {
    const std::int64_t room = cut->partitionRows[i];
    const std::int64_t rows = firstRow[i + 1] - firstRow[i];
    const bool fits = !ordinals
                          ? rows == room
                          : rows == 0 || all[static_cast<std::size_t>(firstRow[i + 1] - 1)] < room;
    if (!fits) {
      return false;
    }
  }
  return true;
}

RowPlaces RowPlaces::inCut(const PositionCut& other) const {
  assert(cut->positions().has_value());
  RowPlaces places = *this;
  RowCut newCut{cut->source, {}};
  places.firstRow = {0};
  for (std::int64_t partition = 0; partition < other.numPartitions(); ++partition) {
    newCut.partitionRows.push_back(other.end(partition) - other.begin(partition));
    places.firstRow.push_back(other.end(partition));
  }
  places.cut = std::make_shared<const RowCut>(std::move(newCut));
  if (!ordinals) {
    return places;
  }
  // Positions ascend through all partitions; those of a partition are counted from its first.
  auto buffer = allocateBuffer(ordinals->rows() * static_cast<std::int64_t>(sizeof(std::int64_t)));
  auto* moved = buffer->mutable_data_as<std::int64_t>();
  const std::span<const std::int64_t> own = ordinals->values<std::int64_t>();
  std::int64_t row = 0;
  std::int64_t begin = 0;
  std::int64_t to = 0;
  for (std::size_t i = 0; i + 1 < firstRow.size(); begin += cut->partitionRows[i++]) {
    for (; row < firstRow[i + 1]; ++row) {
      const std::int64_t position = begin + own[static_cast<std::size_t>(row)];
      for (; position >= other.end(to); ++to) {
        places.firstRow[static_cast<std::size_t>(to) + 1] = row;
      }
      moved[row] = position - other.begin(to);
    }
  }
  for (; to < other.numPartitions(); ++to) {
    places.firstRow[static_cast<std::size_t>(to) + 1] = row;
  }
  places.ordinals = Column(ElementType::Int64, row, std::move(buffer));
  return places;
}

Chunk RowPlaces::take(const Chunk& whole, std::int64_t partition, std::int64_t first,
                      std::int64_t last) const {
  assert(partition >= 0 && partition < cut->numPartitions());
  const auto at = static_cast<std::size_t>(partition);
  const std::int64_t begin = firstRow[at];
  const std::int64_t rows = firstRow[at + 1] - begin;
  std::int64_t from = std::min(first, rows);
  std::int64_t count = std::min(last, rows) - from;
  RowOrdinals taken(from, count);
  if (ordinals) {
    const std::span<const std::int64_t> ofPartition = ordinals->values<std::int64_t>().subspan(
        static_cast<std::size_t>(begin), static_cast<std::size_t>(rows));
    const auto low = std::lower_bound(ofPartition.begin(), ofPartition.end(), first);
    const auto high = std::lower_bound(low, ofPartition.end(), last);
    from = low - ofPartition.begin();
    count = high - low;
    taken = RowOrdinals(std::make_shared<const OrdinalList>(low, high, currentResource()));
  }
  Chunk chunk{partition, std::move(taken), whole.names, {}, whole.trailing};
  for (const Column& column : whole.columns) {
    chunk.columns.push_back(column.slice(begin + from, count));
  }
  return chunk;
}

}  // namespace kv::runtime
