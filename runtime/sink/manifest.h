#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "sink/PartWriter.h"

namespace kv::runtime {

/// The text of a folder's manifest, JSON: what wrote it, the format, the rows, the columns with
/// their types, the keys, and the files with their rows and bytes.
std::string manifestOf(const WriteTarget& target, const SinkSchema& schema, std::int64_t rows,
                       std::span<const WrittenFile> files);

}  // namespace kv::runtime
