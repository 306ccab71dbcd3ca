#pragma once

#include <memory>
#include <string>

#include "column/RowPlaces.h"
#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// A value that exists before a pass, as the steps of a stage use it.
struct StageInput {
  Chunk rows{};                               ///< an array or a table; no columns if it is opaque
  std::shared_ptr<const RowPlaces> places{};  ///< null if they aren't known to be rows of a source
  std::string origin{};                       ///< what made it, for messages
  bool isOpaque = false;                      ///< goes to users' functions as it is
};

}  // namespace kv::runtime
