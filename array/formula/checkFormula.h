#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "formula/Formula.h"

namespace kv::formula {

/// The functions that a formula may call.
struct Vocabulary {
  struct ElementFunction {
    std::string name;
    std::size_t inputs = 0;
  };
  std::vector<ElementFunction> elementFunctions;  ///< row by row; may have no inputs
  std::vector<std::string> aggregates;            ///< reduce all rows to one; one input

  std::vector<std::string> names() const;
};

/// What a formula is used for.
enum class Purpose : std::uint8_t {
  Result,     ///< one value
  Condition,  ///< a value for each row
  Column,     ///< rows to write: a value for each, or one for all
};

/// Refuses what is wrong for any columns: an unknown function, a wrong number of inputs, an
/// aggregate of a constant.
/// Errors: FormulaError with the place.
void checkCalls(const Formula& formula, const Vocabulary& vocabulary);

/// Refuses a column that isn't one of `columns`.
/// Errors: FormulaError with the place.
void checkColumns(const Formula& formula, std::span<const std::string> columns);

/// Refuses a formula whose value doesn't suit `purpose`.
/// Requires: it passed `checkCalls`.
/// Errors: FormulaError with the place.
void checkPurpose(const Formula& formula, const Vocabulary& vocabulary, Purpose purpose);

}  // namespace kv::formula
