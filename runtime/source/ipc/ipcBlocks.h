#pragma once

#include "source/BlockFile.h"

namespace kv::runtime {

/// Files in Arrow's IPC formats, whose blocks are record batches.
extern const BlockFormat kIpcBlocks;

}  // namespace kv::runtime
