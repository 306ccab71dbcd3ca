#pragma once

#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

/// Accumulates the values of one partition for one aggregate and one type of column.
class Accumulator {
 public:
  virtual ~Accumulator() = default;

  /// Requires: an integer or logical column has no nulls, and one of times no kNaT.
  virtual void update(const Column& column, const RowOrdinals& ordinals) = 0;

  /// Writes count, words, text and `hasMissing`.
  virtual void finish(AggregatePartial& partial) = 0;
};

}  // namespace kv::runtime
