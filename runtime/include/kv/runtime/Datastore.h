#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Cancellation.h"
#include "kv/runtime/Chunk.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

class ArrayDatastore;

/// A column of a source: its name and the type of its elements. All this depends on the data alone.
struct ColumnInfo {
  std::string name;
  ElementType type = ElementType::Double;  ///< Unknown if its values can't be read
  bool isUndecided = false;  ///< no value was found from which the type could be inferred
  bool isNullable = false;   ///< of integers or logicals some of which may be missing
  std::string fileType{};    ///< the type in the file if it is another one: `decimal128(9, 2)`

  bool isReadable() const { return type != ElementType::Unknown; }

  bool operator==(const ColumnInfo&) const = default;
};

/// The columns of a source, in the order of the source; names are distinct.
using Schema = std::vector<ColumnInfo>;

struct ElementFunction;

/// A condition on the rows of a source: a comparison of a column with a value.
struct RowCondition {
  std::string column;
  const ElementFunction* comparison = nullptr;  ///< `lt`, `le`, `gt`, `ge` or `eq`
  Column value;                                 ///< of one row
};

/// Reads one partition of a source from its first row to its last, once.
///
/// Threads: one at a time; readers of one source may run at the same time.
class ChunkReader {
 public:
  virtual ~ChunkReader() = default;

  /// The next rows of the partition; empty after the last.
  ///
  /// Result: the requested columns, in that order, with their names, nullable where the schema says
  ///         so. A chunk has at least one row; how rows are cut into chunks depends only on the
  ///         source, not on the columns.
  /// Errors: errors::StepError if the data can't be read, "KALVEX:datastore:SourceChanged" if the
  ///         source changed while it was read; Cancelled if the token requests it. After either,
  ///         the reader can only be destroyed.
  /// Lives:  a chunk may outlive the reader; the reader keeps none.
  virtual std::optional<Chunk> next() = 0;

  /// The number of rows so far that were left out before the last row returned, or before the end.
  virtual std::int64_t skippedRows() const { return 0; }
};

/// How many reads of a partition are repeated where no strategy says otherwise.
inline constexpr int kMaxReadFailures = 3;

/// Consecutive partitions of a source, [first, first + count).
struct SourceRange {
  std::int64_t first = 0;
  std::int64_t count = 1;

  bool operator==(const SourceRange&) const = default;
};

/// What a unit reads of a source.
struct RangeRequest {
  std::int64_t partition = 0;  ///< that the chunks are of
  SourceRange range{};         ///< what it consists of
  std::vector<std::string> columns{};
  std::vector<RowCondition> conditions{};  ///< see openPartitionWhere
};

/// A source of rows that is cut into partitions, each of which can be read separately.
///
/// The number of partitions, and the rows in each, depend only on the data.
///
/// Threads: immutable; may be used by several threads.
class Datastore {
 public:
  virtual ~Datastore() = default;

  virtual const Schema& schema() const = 0;

  virtual std::int64_t numPartitions() const = 0;

  /// A reader of the named columns of one partition; if none is named, chunks only have rows.
  ///
  /// Requires: 0 <= partition < numPartitions().
  /// Errors:   "KALVEX:datastore:SourceChanged" if the source has changed since it was
  ///           opened, "KALVEX:datastore:UnknownColumn" for a name that isn't in `schema`,
  ///           "KALVEX:datastore:UnsupportedColumn" for a column that can't be read.
  /// Lives:    the reader may outlive this object, but not `cancellation`.
  virtual std::unique_ptr<ChunkReader> openPartition(
      std::int64_t partition, const std::vector<std::string>& columns,
      const CancellationToken& cancellation) const = 0;

  /// True if `openPartitionWhere` may leave out rows.
  virtual bool canSkipRows() const { return false; }

  /// The same reader, which may leave out rows for which a condition isn't true; the ordinals of
  /// the others are the same.
  ///
  /// Requires: the columns of `conditions` are in `schema` and can be read.
  virtual std::unique_ptr<ChunkReader> openPartitionWhere(
      std::int64_t partition, const std::vector<std::string>& columns,
      const std::vector<RowCondition>& conditions, const CancellationToken& cancellation) const;

  /// What partition `partition` consists of, in partitions of the original where this source was
  /// cut in another way. A unit carries it.
  virtual SourceRange rangeOf(std::int64_t partition) const { return {partition, 1}; }

  /// `openPartitionWhere` where the partition's range is known from a unit.
  virtual std::unique_ptr<ChunkReader> openRange(const RangeRequest& request,
                                                 const CancellationToken& cancellation) const {
    return openPartitionWhere(request.partition, request.columns, request.conditions, cancellation);
  }

  /// How many reads of a partition may be repeated after a failure that may pass, such as EIO.
  virtual int maxReadFailures() const { return kMaxReadFailures; }

  /// The same rows in at least `count` partitions, some of which may be empty; null if the source
  /// can't be cut finer than it is.
  ///
  /// Requires: count > numPartitions().
  virtual std::shared_ptr<const Datastore> cutFiner(std::int64_t /*count*/) const {
    return nullptr;
  }

  /// The first rows of the source, at most `rows` and at most one chunk; all columns that can be
  /// read.
  ///
  /// Requires: rows >= 0.
  /// Errors:   as for `openPartition` and `ChunkReader::next`.
  virtual Chunk preview(std::int64_t rows) const = 0;

  /// A chunk of the named columns without rows.
  ///
  /// Requires: the columns are in `schema` and can be read.
  virtual Chunk emptyChunk(std::int64_t partition, const std::vector<std::string>& columns) const;

  /// An equal datastore that can be used and destroyed independently of this one.
  virtual std::unique_ptr<Datastore> copy() const = 0;

  /// The identity of the source: of everything that determines its rows, their partitions and their
  /// types.
  ///
  /// Cost: none; computed once when the source is opened.
  virtual const std::string& fingerprint() const = 0;

  /// The identity of the rows alone, without what they hold: equal for two datastores exactly if
  /// their arrays can be combined row by row.
  virtual const std::string& rowSpace() const { return fingerprint(); }

  /// The number of rows of a partition; empty if only reading it can find out.
  ///
  /// Requires: 0 <= partition < numPartitions().
  /// Cost:     none; reads nothing.
  virtual std::optional<std::int64_t> knownRows(std::int64_t /*partition*/) const {
    return std::nullopt;
  }

  /// The path of the file in which a partition begins; empty for rows that aren't in files.
  ///
  /// Requires: 0 <= partition < numPartitions().
  virtual std::string fileOf(std::int64_t /*partition*/) const { return {}; }

  /// The paths of all its files; none for rows that aren't in files.
  virtual std::vector<std::string> files() const { return {}; }

  /// This source if its rows are positions: such sources can be read from any position on, and side
  /// by side if they have the same number of rows. Null for any other.
  virtual const ArrayDatastore* asArrays() const { return nullptr; }

  /// About how many bytes of memory a reader of some columns of a partition needs at a time.
  ///
  /// Requires: 0 <= partition < numPartitions(); the columns are in `schema`.
  /// Cost:     none; reads nothing.
  virtual std::int64_t estimateBytes(std::int64_t partition,
                                     const std::vector<std::string>& columns) const;

  /// What a process needs to open the same source, as bytes: see openSource(). The rows aren't part
  /// of it, and what was found out by opening the source is.
  ///
  /// Errors: std::logic_error for a source that exists in this process only.
  virtual std::string describe() const = 0;

  /// The source under the name that the user gave, such as `flights.csv`, for messages and plans.
  virtual std::string displayName() const = 0;

  /// How its files are written, for plans, such as `separated by tabs`; empty if that is obvious.
  /// Sources of equal files and columns have equal rows only if this is equal.
  virtual std::string formatNote() const { return {}; }

 protected:
  /// For asserts: whether the columns of `conditions` are in `schema` and can be read.
  bool canCheck(const std::vector<RowCondition>& conditions) const;
};

}  // namespace kv::runtime
