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

/// A column of a source: what it is called and of which type its elements are.
struct ColumnInfo {
  std::string name;
  ElementType type = ElementType::Double;
  bool isUndecided = false;  ///< no value was found from which to infer the type

  bool operator==(const ColumnInfo&) const = default;
};

/// The columns of a source, in its own order; names are distinct.
using Schema = std::vector<ColumnInfo>;

/// Reads one partition of a source from its first row to its last, once.
///
/// Threads: belongs to one thread at a time; readers of one source may run at the same time.
class ChunkReader {
 public:
  virtual ~ChunkReader() = default;

  /// The next rows of the partition; nothing after the last.
  ///
  /// Result:   the columns asked for, in that order, with their names. A chunk has at least one
  /// row;
  ///           how rows are cut into chunks follows from the source alone, not from the columns.
  /// Errors:   DataError when the data can't be read, "KALVEX:datastore:SourceChanged" when the
  ///           source changed while it was read; Cancelled when the token says so; after either
  ///           the reader can only be destroyed.
  /// Lives:    a chunk outlives the reader; the reader keeps none.
  virtual std::optional<Chunk> next() = 0;
};

/// A source of rows that is cut into partitions, each read on its own.
///
/// How many partitions there are, and which rows each holds, follows from the data alone.
///
/// Threads: immutable; may be used by several threads.
class Datastore {
 public:
  virtual ~Datastore() = default;

  virtual const Schema& schema() const = 0;

  virtual std::int64_t numPartitions() const = 0;

  /// A reader of the named columns of one partition; with none named, chunks have rows only.
  ///
  /// Requires: 0 <= partition < numPartitions().
  /// Errors:   DataError "KALVEX:datastore:SourceChanged" when the source isn't what it was when it
  ///           was opened, "KALVEX:datastore:UnknownColumn" for a name that `schema` lacks.
  /// Lives:    the reader may outlive this object, and not `cancellation`.
  virtual std::unique_ptr<ChunkReader> openPartition(
      std::int64_t partition, const std::vector<std::string>& columns,
      const CancellationToken& cancellation) const = 0;

  /// The first rows of the source, at most `rows` and at most one chunk; all columns.
  ///
  /// Requires: rows >= 0.
  /// Errors:   as `openPartition` and `ChunkReader::next`.
  virtual Chunk preview(std::int64_t rows) const = 0;

  /// An equal datastore that may be used and destroyed apart from this one.
  virtual std::unique_ptr<Datastore> copy() const = 0;

  /// The identity of the source, of everything that determines its rows, their partitions and their
  /// types. Equal for two datastores exactly if arrays of them may go row by row and share a pass.
  ///
  /// Cost: none; computed once when the source is opened.
  virtual const std::string& fingerprint() const = 0;

  /// The source as its user called it, such as `flights.csv`, for messages and plans.
  virtual std::string displayName() const = 0;
};

}  // namespace kv::runtime
