#pragma once

#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

/// Accumulates the values of one partition for one aggregate and one type of column.
class Accumulator {
 public:
  virtual ~Accumulator() = default;

  /// `column`: without nulls, if it is of integers or logicals, and without kNaT, if it is of
  /// times: AggregateState leaves these rows out.
  virtual void update(const Column& column, const RowOrdinals& ordinals) = 0;

  /// Writes count, words, text and `hasMissing`.
  virtual void finish(AggregatePartial& partial) = 0;
};

}  // namespace kv::runtime
