#pragma once

#include <kv/array.h>

#include <string>
#include <vector>

#include "formula/Formula.h"
#include "formula/checkFormula.h"

namespace kv::shell {

/// The functions of each row that formulas have: those of arrays, and `rand`.
std::vector<FunctionFacts> rowFunctions();

/// The names of all functions that formulas have.
Vocabulary arrayVocabulary();

/// Records a formula over the columns of a table as an array; aggregates skip missing values.
/// The user's place of each step is `source` and, as the line, the position in the formula from 1.
///
/// Requires: `formula` passed `checkCalls` with `arrayVocabulary()`, `checkColumns` and
///           `checkPurpose`.
/// Errors: FormulaError with the place for a function that isn't defined for the types it meets.
Array recordFormula(Session& session, const Table& table, const Formula& formula,
                    const std::string& source);

/// The rows of `table` for which `condition` holds.
/// Errors: as `recordFormula`; FormulaError also if the condition isn't true or false.
Table keepRows(Session& session, const Table& table, const Formula& condition,
               const std::string& source);

/// An error of an evaluation with a mark under the step where it arose, if that is one of
/// `formula`.
Error markedError(const Error& error, const Formula& formula, const std::string& source);

}  // namespace kv::shell
