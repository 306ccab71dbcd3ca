#pragma once

#include "source/BlockFile.h"

namespace kv::runtime {

/// Parquet files, whose blocks are row groups.
extern const BlockFormat kParquetBlocks;

}  // namespace kv::runtime
