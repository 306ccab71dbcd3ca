#pragma once

#include <memory>
#include <string>

#include "column/RowPlaces.h"
#include "kv/runtime/Chunk.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

/// A value that exists before a pass, as the steps of a stage use it.
struct StageInput {
  Column column;                              ///< of a value that isn't known to be rows
  std::shared_ptr<const RowPlaces> places{};  ///< of a value whose rows are those of a source
  Chunk rows{};                               ///< such a value, a column or a table
  std::string origin{};                       ///< what made it, for messages
  bool isOpaque = false;  ///< goes to users' functions as it is; `column` has no meaning
};

}  // namespace kv::runtime
