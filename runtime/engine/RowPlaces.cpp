#include "engine/RowPlaces.h"

#include <algorithm>
#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "values/columnValues.h"

namespace kv::runtime {
namespace {

using host::Value;

constexpr std::array<std::string_view, 8> kMetadataFields{
    "RowCount",        "PartitionRows", "Ordinals", "Source",
    "PartitionChunks", "ChunkRows",     "Origin",   "IsUntyped"};

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

/// More rows than a chunk has; rows of a partition can be added up without overflow.
constexpr std::int64_t kMaxChunkRows = std::int64_t{1} << 32;

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
bool ascendTo(std::span<const std::int64_t> numbers, std::size_t last) {
  return !numbers.empty() && numbers.front() == 0 && std::ranges::is_sorted(numbers) &&
         static_cast<std::size_t>(numbers.back()) == last;
}

std::optional<std::string> textIn(const kxArray* metadata, std::string_view field) {
  const kxArray* text = kxGetField(metadata, 0, field);
  const bool isText = text != nullptr && kxIsScalar(text) && Torvane::String::isString(text);
  return isText ? std::optional(host::toText(text)) : std::nullopt;
}

std::optional<RowCut> cutIn(const kxArray* metadata, std::size_t numPartitions) {
  const auto source = textIn(metadata, "Source");
  const auto firstChunk = int64sOf(kxGetField(metadata, 0, "PartitionChunks"));
  const auto chunkRows = int64sOf(kxGetField(metadata, 0, "ChunkRows"));
  const bool isCut =
      source && firstChunk.size() == numPartitions + 1 && ascendTo(firstChunk, chunkRows.size()) &&
      std::ranges::all_of(chunkRows,
                          [](std::int64_t rows) { return rows > 0 && rows <= kMaxChunkRows; });
  if (!isCut) {
    return std::nullopt;
  }
  return RowCut{
      *source, {firstChunk.begin(), firstChunk.end()}, {chunkRows.begin(), chunkRows.end()}};
}

/// True if the chunks of each partition have room for the rows that are placed in it.
bool holdsPlaces(const RowCut& cut, const RowPlaces& places) {
  const auto ordinals =
      places.ordinals ? places.ordinals->values<std::int64_t>() : std::span<const std::int64_t>{};
  for (std::size_t i = 0; i + 1 < places.firstRow.size(); ++i) {
    std::int64_t room = 0;
    for (std::int64_t chunk = cut.firstChunk[i]; chunk < cut.firstChunk[i + 1]; ++chunk) {
      room += cut.chunkRows[static_cast<std::size_t>(chunk)];
    }
    const std::int64_t rows = places.firstRow[i + 1] - places.firstRow[i];
    const bool fits = !places.ordinals ? rows == room
                      : rows == 0
                          ? true
                          : ordinals[static_cast<std::size_t>(places.firstRow[i + 1] - 1)] < room;
    if (!fits) {
      return false;
    }
  }
  return true;
}

}  // namespace

void RowCut::addPartition(const std::vector<std::int64_t>& rows) {
  chunkRows.insert(chunkRows.end(), rows.begin(), rows.end());
  firstChunk.push_back(static_cast<std::int64_t>(chunkRows.size()));
}

RowPlaces RowPlaces::ofPartitions(const std::vector<std::vector<Chunk>>& partitions,
                                  std::shared_ptr<const RowCut> cut) {
  RowPlaces places{{0}, std::nullopt, std::move(cut), {}};
  for (const std::vector<Chunk>& chunks : partitions) {
    std::int64_t rows = places.firstRow.back();
    for (const Chunk& chunk : chunks) {
      rows += chunk.rows();
    }
    places.firstRow.push_back(rows);
  }
  if (!std::all_of(partitions.begin(), partitions.end(), startsAtZero) ||
      !holdsPlaces(*places.cut, places)) {
    places.ordinals = ordinalsOf(partitions);
  }
  return places;
}

std::optional<RowPlaces> RowPlaces::fromMetadata(const kxArray* metadata, std::size_t rows) {
  if (kxGetClassID(metadata) != kxSTRUCT_CLASS || kxIsEmpty(metadata)) {
    return std::nullopt;
  }
  const auto firstRow = int64sOf(kxGetField(metadata, 0, "PartitionRows"));
  const bool hasPartitions = firstRow.size() >= 2;
  if (!hasPartitions || !ascendTo(firstRow, rows)) {
    return std::nullopt;
  }
  std::optional<RowCut> cut = cutIn(metadata, firstRow.size() - 1);
  if (!cut) {
    return std::nullopt;
  }
  RowPlaces places{{firstRow.begin(), firstRow.end()},
                   std::nullopt,
                   std::make_shared<const RowCut>(*std::move(cut)),
                   textIn(metadata, "Origin").value_or("")};
  const kxArray* isUntyped = kxGetField(metadata, 0, "IsUntyped");
  places.isUntyped = rows == 0 && kxGetClassID(isUntyped) == kxLOGICAL_CLASS &&
                     kxIsScalar(isUntyped) && *kxGetLogicals(isUntyped);
  const kxArray* ordinals = kxGetField(metadata, 0, "Ordinals");
  if (kxGetClassID(ordinals) == kxINT64_CLASS) {
    if (!ascendInEachPartition(int64sOf(ordinals), firstRow)) {
      return std::nullopt;
    }
    places.ordinals = toColumn(ordinals);
  }
  return holdsPlaces(*places.cut, places) ? std::optional(std::move(places)) : std::nullopt;
}

Value RowPlaces::toMetadata() const {
  Value metadata = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kMetadataFields));
  const auto set = [&](std::string_view field, Value value) {
    kxSetField(metadata.get(), 0, field, value.release());
  };
  set("RowCount", host::makeDouble(static_cast<double>(rows())));
  set("PartitionRows", int64Column(firstRow));
  set("Ordinals", ordinals ? toValue(*ordinals) : host::makeEmptyDouble());
  set("Source", host::makeString(cut->source));
  set("PartitionChunks", int64Column(cut->firstChunk));
  set("ChunkRows", int64Column(cut->chunkRows));
  set("Origin", host::makeString(origin));
  set("IsUntyped", host::makeLogical(isUntyped));
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

}  // namespace kv::runtime
