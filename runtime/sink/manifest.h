#pragma once

#include <span>
#include <string>

#include "sink/PartWriter.h"

namespace kv::runtime {

/// The text of a folder's manifest, JSON: what wrote it, the format, the rows, the columns with
/// their types, and the files with their rows and bytes.
std::string manifestOf(const WriteTarget& target, const SinkSchema& schema,
                       std::span<const WrittenPart> parts);

}  // namespace kv::runtime
