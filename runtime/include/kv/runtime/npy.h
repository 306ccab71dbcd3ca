#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kv/runtime/files.h"

namespace kv::runtime {

/// Opens `.npy` files, NumPy's format, as one array: their rows follow one another.
///
/// Each of `paths` is a file, a folder (its `*.npy` files), or a pattern with `*`, `?` and `[...]`
/// (see expandPath()). All files have elements of one type and the same dimensions after that of
/// rows; each may be in C or in Fortran order, and in either order of bytes.
///
/// Rows are positions, as in arrays in memory: an array of n rows can be combined with any other
/// array of n rows.
///
/// Types: as in the file; half floats become single, times are rounded to microseconds, towards the
/// past. Complex numbers, texts, records and Python objects can't be read.
///
/// Errors: errors::StepError if a path leads to nothing, a file can't be read, is damaged or has
///         other elements than the first.
/// Cost:   reads the header of each file.
std::unique_ptr<Datastore> openNpy(const std::vector<std::string>& paths);

/// The same rows as a table: its columns are `column_1`, `column_2`, ..., those of the trailing
/// dimensions in column-major order. `types` may name the types that columns have, but not change
/// them.
///
/// Errors: the same, and "KALVEX:datastore:FixedType".
std::unique_ptr<Datastore> openNpyTable(const std::vector<std::string>& paths,
                                        const std::vector<TypeOverride>& types = {});

}  // namespace kv::runtime
