#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "formula/Formula.h"

namespace kv::formula {

/// An error in a formula. `what()` is for the terminal: a sentence, the formula with a mark under
/// the place, and advice if there is any.
class FormulaError : public std::runtime_error {
 public:
  FormulaError(std::string_view formula, Span place, std::string_view sentence,
               std::string_view advice = {});
};

/// A column that isn't there.
class UnknownColumn : public FormulaError {
 public:
  using FormulaError::FormulaError;
};

/// The formula on one line and a line with `^` under `place`, both indented.
///
/// Of a long formula only the surroundings of the place are shown. Columns are counted in
/// characters, not bytes; control characters are shown as spaces.
std::string markedFormula(std::string_view formula, Span place);

}  // namespace kv::formula
