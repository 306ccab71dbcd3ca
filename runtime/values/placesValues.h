#pragma once

#include <cstddef>
#include <optional>

#include "column/RowPlaces.h"
#include "kv/host/values.h"

/// Row places as the metadata of a promise: a structure with "RowCount"; "PartitionRows", an int64
/// column of `firstRow`; "Ordinals", an int64 column or `[]`; "Source" and "SourceRows", the cut;
/// "Origin"; "IsUntyped"; "IsNullable", a flag for each column.
namespace kv::runtime {

/// None for metadata that isn't the places of exactly `rows` rows: anyone may set it.
std::optional<RowPlaces> placesOf(const kxArray* metadata, std::size_t rows);

host::Value toMetadata(const RowPlaces& places);

}  // namespace kv::runtime
