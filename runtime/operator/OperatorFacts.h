#pragma once

#include <cstdint>
#include <string_view>

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// What an operator does to rows.
enum class RowEffect : std::uint8_t {
  Create,  ///< brings rows into the stage
  Keep,    ///< a row of output for each row of input
  /// Rows chosen one by one, in order: those for which input 0, a logical, is true. Output i has
  /// the chosen rows of input i + 1. Rules rely on all of this; an operator that chooses otherwise,
  /// such as the first rows of a partition, renews them.
  Filter,
  Renew,  ///< rows of its own, made from those of its inputs in each partition
  End,    ///< no rows: what it gathers leaves the stage when the rows of a partition have ended
};

/// Which rows a step that ends rows gives once all partitions have ended.
enum class SinkRows : std::uint8_t {
  None,  ///< none: values, such as that of an aggregate
  Kept,  ///< all rows of its input as they are
  Made,  ///< rows of a row space of their own: those of its first input decide on it
};

/// What planning, rules and the engine must know of an operator without running it: one plain value
/// per operator, fixed when the operator is made.
struct OperatorFacts {
  /// Its name in bytes: that of its row in the table of operators.
  std::string_view name{};

  RowEffect rows = RowEffect::Keep;  ///< Create for each read, End for each sink
  SinkRows sinkRows = SinkRows::None;

  /// Into how many partitions the step puts the rows that it makes; 0: their number decides.
  std::int64_t madePartitions = 0;

  bool callsUser = false;       ///< it calls a user-defined function
  bool seesFrames = false;      ///< it can see where its rows end: it gets frames
  bool keepsForOrder = false;   ///< units keep rows for their turn, unless they run one by one
  bool hasSideEffects = false;  ///< each run shows outside of it, so that none may be repeated

  bool spreads = true;        ///< an input of one row is repeated for every row of the others
  bool combinesRows = true;   ///< the inputs of the step must have the same rows
  bool passesInputs = false;  ///< output i has the rows of input i, unchanged, for each i
  bool takesValues = false;   ///< of a flow: some of its inputs may be values

  /// How many rows users' functions are to see at a time from this step on; 0: as before.
  std::int64_t frameRows = 0;

  /// The built-in function of matching rows that the step is; null for any other step.
  const ElementFunction* elementFunction = nullptr;
};

}  // namespace kv::runtime
