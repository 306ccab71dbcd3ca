#pragma once

#include <span>
#include <vector>

#include "kv/host/values.h"
#include "kv/runtime/Column.h"

/// The rows of arrays, handed over as they are computed.
namespace kv::runtime {

/// Takes the rows of an evaluation.
///
/// Threads: called on the thread of the evaluation, which leases the session.
class FrameReceiver {
 public:
  virtual ~FrameReceiver();

  /// Takes the next rows, a column of each array. Units run ahead while it waits, few of them.
  /// Result: false if no more rows are needed.
  virtual bool take(std::vector<Column> columns) = 0;
};

/// Records that the rows of arrays, or values of one row for all of them, are handed over frame by
/// frame, in the order of partitions.
/// Result: an array; evaluating it does so.
host::Value recordDelivery(std::span<const kxArray* const> arrays);

/// Hands the rows over. Errors: those of evaluating `delivery`.
void deliver(const kxArray* delivery, FrameReceiver& receiver);

}  // namespace kv::runtime
