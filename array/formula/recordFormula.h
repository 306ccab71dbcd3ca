#pragma once

#include <kv/array.h>

#include <string>
#include <string_view>
#include <vector>

#include "formula/Formula.h"
#include "formula/checkFormula.h"

namespace kv::formula {

/// The functions of each row that formulas can use: those of arrays, and `rand`.
std::vector<FunctionFacts> rowFunctions();

/// The names of all functions that formulas can use.
Vocabulary arrayVocabulary();

/// How a user of the front end says that a column has another type.
using TypeAdvice = std::string (*)(std::string_view column, std::string_view type);

/// Records a formula over the columns of a table as an array; aggregates skip missing values.
/// The user's place of each step is `source`, with the position in the formula (from 1) as line.
///
/// Requires: `formula` passed `checkCalls` with `arrayVocabulary()`, `checkColumns` and
///           `checkPurpose`.
/// Errors: FormulaError with the place for a function that isn't defined for the types it meets.
Array recordFormula(Session& session, const Table& table, const Formula& formula,
                    const std::string& source, TypeAdvice advice);

/// The rows of `table` that satisfy `condition`.
/// Errors: as `recordFormula`; FormulaError also if the condition isn't true or false.
Table keepRows(Session& session, const Table& table, const Formula& condition,
               const std::string& source, TypeAdvice advice);

/// An error of an evaluation, with a mark under the step that caused it if the step is in
/// `formula`.
Error markedError(const Error& error, const Formula& formula, const std::string& source);

}  // namespace kv::formula
