#pragma once

#include <functional>

#include "kv/array.h"

/// Rows for other programs, computed as they are pulled.
namespace kv {

/// What a stream reports to the program that made it.
struct StreamHooks {
  /// Called every 50 ms on the thread that waits for rows; if it returns false, the stream ends
  /// with an error. Empty for none.
  std::function<bool()> whileWaiting{};
  /// Called when all rows have been computed, on any thread. Empty for none.
  std::function<void(const Facts&)> atEnd{};
};

/// The rows of a table, or of a column, as a stream of Arrow's C interface.
///
/// Nothing is computed before the first batch is pulled. From then on one evaluation, on a thread
/// of its own, computes rows in order; it waits while two batches haven't been pulled, so memory
/// doesn't grow with the number of rows. A batch has up to 32,768 rows. Releasing the stream, or
/// closing the session, ends the evaluation within a chunk.
///
/// Types: as of `Session::fromArrow`; logicals are bits, missing integers, logicals, texts and
///        times are nulls, and missing floating values NaN.
/// Errors: Error "KALVEX:array:NeedsColumn" for an array of several dimensions, those of
///         `Table::column`. Those of the evaluation are the stream's last error, whose text names
///         the line, the partition and the rows.
/// Threads: a stream is pulled and released on any thread, one at a time. A thread that is in a
///          call of the session, such as a user's function, gets all rows when it pulls the first.
void toStream(const Table& table, ArrowArrayStream* stream, StreamHooks hooks = {},
              Where where = Where::current());
void toStream(const Array& column, ArrowArrayStream* stream, StreamHooks hooks = {},
              Where where = Where::current());

}  // namespace kv
