#pragma once

#include <string>

#include "kv/array.h"

namespace kv::python {

/// Records a formula over the columns of a table.
/// Errors: Error "KALVEX:array:BadFormula" or, for a column that isn't there,
///         "KALVEX:array:UnknownColumnInFormula" with the formula and an explanation.
Array recordText(Session& session, const Table& table, const std::string& text);

/// The rows of `table` for which a formula is true. Errors: as for `recordText`.
Table keepRowsByText(Session& session, const Table& table, const std::string& text);

}  // namespace kv::python
