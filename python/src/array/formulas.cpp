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
  } catch (const shell::UnknownColumn& error) {
    raiseError("KALVEX:array:UnknownColumnInFormula", {text, error.what()});
  } catch (const shell::FormulaError& error) {
    raiseError("KALVEX:array:BadFormula", {text, error.what()});
  }
}

shell::Formula checkedFormula(const Table& table, const std::string& text) {
  const shell::Vocabulary vocabulary = shell::arrayVocabulary();
  shell::Formula formula = shell::parseFormula(text);
  shell::checkCalls(formula, vocabulary);
  shell::checkColumns(formula, table.columns());
  return formula;
}

}  // namespace

Array recordText(Session& session, const Table& table, const std::string& text) {
  return explained(text, [&] {
    return shell::recordFormula(session, table, checkedFormula(table, text), kSource,
                                typesArgument);
  });
}

Table keepRowsByText(Session& session, const Table& table, const std::string& text) {
  return explained(text, [&] {
    const shell::Formula formula = checkedFormula(table, text);
    shell::checkPurpose(formula, shell::arrayVocabulary(), shell::Purpose::Condition);
    return shell::keepRows(session, table, formula, kSource, typesArgument);
  });
}

}  // namespace kv::python
