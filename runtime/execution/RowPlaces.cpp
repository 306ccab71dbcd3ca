#include "execution/RowPlaces.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <span>
#include <string_view>
#include <utility>

#include "values/columnValues.h"

namespace kv::runtime {
namespace {

using host::Value;

constexpr std::array<std::string_view, 3> kMetadataFields{"RowCount", "PartitionRows", "Ordinals"};

Value int64Column(std::span<const std::int64_t> numbers) {
  Value column = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{numbers.size(), 1}, kxINT64_CLASS));
  std::copy(numbers.begin(), numbers.end(),
            static_cast<std::int64_t*>(kxGetMutableData(column.get())));
  return column;
}

/// True if the chunks of a partition are its rows from the first one on.
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

Column ordinalsOf(const std::vector<std::vector<Chunk>>& partitions) {
  std::vector<std::int64_t> ordinals;
  for (const std::vector<Chunk>& chunks : partitions) {
    for (const Chunk& chunk : chunks) {
      for (std::int64_t row = 0; row < chunk.rows(); ++row) {
        ordinals.push_back(chunk.ordinals.at(row));
      }
    }
  }
  return toColumn(int64Column(ordinals).get());
}

/// The numbers of an int64 column; none for anything else.
std::span<const std::int64_t> int64sOf(const kxArray* column) {
  if (kxGetClassID(column) != kxINT64_CLASS || kxGetN(column) != 1) {
    return {};
  }
  return {static_cast<const std::int64_t*>(kxGetData(column)), kxGetNumberOfElements(column)};
}

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

}  // namespace

RowPlaces RowPlaces::ofPartitions(const std::vector<std::vector<Chunk>>& partitions) {
  RowPlaces places{{0}, std::nullopt};
  for (const std::vector<Chunk>& chunks : partitions) {
    std::int64_t rows = places.firstRow.back();
    for (const Chunk& chunk : chunks) {
      rows += chunk.rows();
    }
    places.firstRow.push_back(rows);
  }
  if (!std::all_of(partitions.begin(), partitions.end(), startsAtZero)) {
    places.ordinals = ordinalsOf(partitions);
  }
  return places;
}

std::optional<RowPlaces> RowPlaces::fromMetadata(const kxArray* metadata, std::size_t rows) {
  if (kxGetClassID(metadata) != kxSTRUCT_CLASS || kxIsEmpty(metadata)) {
    return std::nullopt;
  }
  const auto firstRow = int64sOf(kxGetField(metadata, 0, "PartitionRows"));
  if (firstRow.empty() || !std::ranges::is_sorted(firstRow) || firstRow.front() != 0 ||
      static_cast<std::size_t>(firstRow.back()) != rows) {
    return std::nullopt;
  }
  RowPlaces places{{firstRow.begin(), firstRow.end()}, std::nullopt};
  const kxArray* ordinals = kxGetField(metadata, 0, "Ordinals");
  if (kxGetClassID(ordinals) == kxINT64_CLASS) {
    if (!ascendInEachPartition(int64sOf(ordinals), firstRow)) {
      return std::nullopt;
    }
    places.ordinals = toColumn(ordinals);
  }
  return places;
}

Value RowPlaces::toMetadata() const {
  Value metadata = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kMetadataFields));
  const auto set = [&](std::string_view field, Value value) {
    kxSetField(metadata.get(), 0, field, value.release());
  };
  set("RowCount", host::makeDouble(static_cast<double>(firstRow.back())));
  set("PartitionRows", int64Column(firstRow));
  set("Ordinals", ordinals ? toValue(*ordinals) : host::makeEmptyDouble());
  return metadata;
}

Chunk RowPlaces::take(const Chunk& whole, std::int64_t partition, std::int64_t first,
                      std::int64_t last) const {
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
    taken = RowOrdinals(std::make_shared<const std::vector<std::int64_t>>(low, high));
  }
  Chunk chunk{partition, std::move(taken), whole.names, {}};
  for (const Column& column : whole.columns) {
    chunk.columns.push_back(column.slice(begin + from, count));
  }
  return chunk;
}

std::vector<Chunk> RowPlaces::cut(const Chunk& whole) const {
  std::vector<Chunk> chunks;
  for (std::int64_t partition = 0; partition < numPartitions(); ++partition) {
    chunks.push_back(take(whole, partition, 0, std::numeric_limits<std::int64_t>::max()));
  }
  return chunks;
}

bool haveSamePlaces(const RowPlaces& a, const RowPlaces& b) {
  if (a.firstRow != b.firstRow || a.ordinals.has_value() != b.ordinals.has_value()) {
    return false;
  }
  if (!a.ordinals) {
    return true;
  }
  const auto ofA = a.ordinals->values<std::int64_t>();
  const auto ofB = b.ordinals->values<std::int64_t>();
  return std::equal(ofA.begin(), ofA.end(), ofB.begin(), ofB.end());
}

}  // namespace kv::runtime
