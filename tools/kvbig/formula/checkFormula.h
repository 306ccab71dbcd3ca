#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "formula/Formula.h"

namespace kv::shell {

/// The functions that a formula may call.
struct Vocabulary {
  struct ElementFunction {
    std::string name;
    std::size_t inputs = 0;
  };
  std::vector<ElementFunction> elementFunctions;  ///< row by row, also without inputs
  std::vector<std::string> aggregates;            ///< all rows to one; one input

  std::vector<std::string> names() const;
};

/// What a formula is for.
enum class Purpose : std::uint8_t {
  Result,     ///< one value
  Condition,  ///< something about each row
};

/// Refuses what can't be right whatever the columns are: an unknown function, a wrong number of
/// inputs, an aggregate of a constant, and a formula that doesn't give what `purpose` asks for.
///
/// Errors: FormulaError with the place.
void checkFormula(const Formula& formula, const Vocabulary& vocabulary, Purpose purpose);

}  // namespace kv::shell
