#include "array/formulas.h"

#include <string_view>

#include "formula/FormulaError.h"
#include "formula/checkFormula.h"
#include "formula/parseFormula.h"
#include "formula/recordFormula.h"
#include "kv/error.h"

namespace kv::python {

namespace {

constexpr char kSource[] = "formula";

/// How a column is read as another type, in Python.
std::string typesArgument(std::string_view column, std::string_view type) {
  return "types={\"" + std::string(column) + "\": \"" + std::string(type) + "\"} of kv.read";
}

template <class Body>
auto explained(const std::string& text, Body&& body) {
  try {
    return body();
  } catch (const formula::UnknownColumn& error) {
    raiseError("KALVEX:array:UnknownColumnInFormula", {text, error.what()});
  } catch (const formula::FormulaError& error) {
    raiseError("KALVEX:array:BadFormula", {text, error.what()});
  }
}

formula::Formula checkedFormula(const Table& table, const std::string& text) {
  const formula::Vocabulary vocabulary = formula::arrayVocabulary();
  formula::Formula formula = formula::parseFormula(text);
  formula::checkCalls(formula, vocabulary);
  formula::checkColumns(formula, table.columns());
  return formula;
}

}  // namespace

Array recordText(Session& session, const Table& table, const std::string& text) {
  return explained(text, [&] {
    return formula::recordFormula(session, table, checkedFormula(table, text), kSource,
                                  typesArgument);
  });
}

Table keepRowsByText(Session& session, const Table& table, const std::string& text) {
  return explained(text, [&] {
    const formula::Formula formula = checkedFormula(table, text);
    formula::checkPurpose(formula, formula::arrayVocabulary(), formula::Purpose::Condition);
    return formula::keepRows(session, table, formula, kSource, typesArgument);
  });
}

}  // namespace kv::python
