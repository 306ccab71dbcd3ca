#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Datastore.h"
#include "kv/runtime/PositionCut.h"
#include "source/memory/ArrayColumn.h"

namespace kv::runtime {

/// The first text of a description of arrays in memory.
inline constexpr std::string_view kMemoryFormat = "memory";

/// Arrays in memory: a table, or one array of any dimensions.
struct ArrayTable {
  std::string name;  ///< for messages and plans
  PositionCut cut;
  std::vector<std::string> names{};  ///< distinct; empty for an array
  Dimensions trailing{};             ///< of an array
  std::vector<std::shared_ptr<const ArrayColumn>> columns{};

  bool isArray() const { return names.empty() && !columns.empty(); }
};

/// Columns of arrays in memory, which can be read at any position.
///
/// Lives: the source may end before.
class ArrayRows {
 public:
  /// `names`: null for an array.
  ArrayRows(std::vector<std::shared_ptr<const ArrayColumn>> columns,
            std::shared_ptr<const std::vector<std::string>> names, Dimensions trailing)
      : columns_(std::move(columns)), names_(std::move(names)), trailing_(std::move(trailing)) {}

  /// The rows from position `first` on, with these ordinals of a partition.
  ///
  /// Errors: "KALVEX:datastore:UnsupportedColumn"; std::bad_alloc.
  Chunk read(std::int64_t partition, std::int64_t first, const RowOrdinals& ordinals) const;

 private:
  std::vector<std::shared_ptr<const ArrayColumn>> columns_;
  std::shared_ptr<const std::vector<std::string>> names_;
  Dimensions trailing_;
};

/// Rows that are positions 0 to n-1: arrays in memory, which are borrowed, generated ones, which
/// take no memory, and files that can be read at any position. Those of n rows have one row space,
/// however they are cut.
///
/// An array has one column in the schema, without a name, and its chunks have none either.
class ArrayDatastore final : public Datastore {
 public:
  explicit ArrayDatastore(ArrayTable table);

  const ArrayTable& table() const;
  const PositionCut& cut() const;

  /// Rows that are read at a time: a power of two, at most kPieceRows.
  std::int64_t chunkRows() const;

  /// Reads the named columns; of an array all, if any is named.
  /// Errors: "KALVEX:datastore:UnknownColumn".
  ArrayRows select(const std::vector<std::string>& columns) const;

  /// True if all columns are computed or in files: such a source can be saved, and opened in any
  /// process.
  bool isDescribed() const;

  /// The description to save. Requires: isDescribed().
  std::string describeForSave() const;

  const Schema& schema() const override;
  std::int64_t numPartitions() const override { return cut().numPartitions(); }
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  Chunk preview(std::int64_t rows) const override;
  Chunk emptyChunk(std::int64_t partition, const std::vector<std::string>& columns) const override;
  std::unique_ptr<Datastore> copy() const override;
  const std::string& fingerprint() const override;
  const std::string& rowSpace() const override;
  std::optional<std::int64_t> knownRows(std::int64_t partition) const override;
  const ArrayDatastore* asArrays() const override { return this; }
  std::string displayName() const override { return table().name; }
  std::vector<std::string> files() const override;
  std::string fileOf(std::int64_t partition) const override;

  /// Of arrays in memory a token, which leads to them in this process as long as they are there.
  std::string describe() const override;

 private:
  struct State;
  class Living;

  explicit ArrayDatastore(std::shared_ptr<const State> state) : state_(std::move(state)) {}
  friend std::shared_ptr<const Datastore> openDescribedArrays(ByteReader& description,
                                                              ReadFileColumn readFileColumn);

  /// Copies share it.
  std::shared_ptr<const State> state_;
};

/// Reads a partition of several such sources side by side, in one cut.
class PositionReader {
 public:
  /// `chunkRows`: rows to read at a time. `cut`: of the rows of the sources.
  /// Lives: `cancellation` outlives it.
  PositionReader(std::vector<ArrayRows> sources, const PositionCut& cut, std::int64_t partition,
                 std::int64_t chunkRows, const CancellationToken& cancellation);

  /// The next rows of each source; none after the last.
  /// Errors: Cancelled; as for ArrayRows::read.
  std::vector<Chunk> next();

 private:
  std::vector<ArrayRows> sources_;
  std::int64_t partition_;
  std::int64_t begin_;
  std::int64_t next_;
  std::int64_t end_;
  std::int64_t chunkRows_;
  const CancellationToken& cancellation_;
};

/// Reads what follows the name of the format in a description.
/// Errors: "KALVEX:executor:BadBytes", also for arrays in memory that are no longer there.
std::shared_ptr<const Datastore> openDescribedArrays(ByteReader& description,
                                                     ReadFileColumn readFileColumn);

}  // namespace kv::runtime
