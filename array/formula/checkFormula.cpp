// Checks a parsed formula without any data. One walk with a stack computes for each part whether it
// is a constant, a single value or one value per row, which is enough to find a wrong call, an
// aggregate of a constant, and a result or condition of the wrong kind.

#include "formula/checkFormula.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cassert>
#include <span>

#include "formula/FormulaError.h"
#include "formula/foreignWords.h"
#include "formula/nearNames.h"
#include "formula/tokens.h"
#include "formula/utf8.h"

namespace kv::formula {

namespace {

/// How many rows a part of a formula has. When several parts are combined, the longest counts.
enum class Rows : std::uint8_t { Constant, One, Many };

struct Part {
  Rows rows;
  Span place;
};

class Checker {
 public:
  Checker(const Formula& formula, const Vocabulary& vocabulary)
      : formula_(formula), vocabulary_(vocabulary) {}

  Rows run() {
    for (const Step& step : formula_.steps) {
      place_ = step.place;
      parts_.push_back(
          {std::visit([&](const auto& what) { return rowsOf(what); }, step.what), step.place});
    }
    return parts_.back().rows;
  }

 private:
  Rows rowsOf(const Constant&) const { return Rows::Constant; }
  Rows rowsOf(const Column&) const { return Rows::Many; }

  Rows rowsOf(const Call& call) {
    const std::size_t expected = inputsOf(call.function);
    if (call.inputs != expected) {
      fail(fmt::format("{} takes {} input{}, got {}", call.function, expected,
                       expected == 1 ? "" : "s", call.inputs));
    }
    const std::span<const Part> inputs = std::span(parts_).last(expected);
    const Rows rows = isAggregate(call.function) ? reduce(call, inputs[0]) : longest(inputs);
    parts_.resize(parts_.size() - expected);
    return rows;
  }

  /// A function without inputs has a different value for each row.
  static Rows longest(std::span<const Part> inputs) {
    return inputs.empty() ? Rows::Many : std::ranges::max(inputs, {}, &Part::rows).rows;
  }

  Rows reduce(const Call& call, const Part& input) {
    if (input.rows == Rows::Constant) {
      place_ = input.place;
      fail(fmt::format("{} needs rows, but this is a constant", call.function),
           fmt::format("Use a column, such as {}(x).", call.function));
    }
    return Rows::One;
  }

  bool isAggregate(const std::string& name) const {
    return std::ranges::find(vocabulary_.aggregates, name) != vocabulary_.aggregates.end();
  }

  std::size_t inputsOf(const std::string& name) const {
    if (isAggregate(name)) {
      return 1;
    }
    const auto found =
        std::ranges::find(vocabulary_.elementFunctions, name, &Vocabulary::ElementFunction::name);
    if (found != vocabulary_.elementFunctions.end()) {
      return found->inputs;
    }
    fail(fmt::format("there is no function \"{}\"", shortened(name)),
         listNames("functions", functionHere(name), vocabulary_.names()));
  }

  [[noreturn]] void fail(std::string_view sentence, std::string_view advice = {}) const {
    throw FormulaError(formula_.text, place_, sentence, advice);
  }

  const Formula& formula_;
  const Vocabulary& vocabulary_;
  std::vector<Part> parts_;
  Span place_;
};

std::string adviceOnColumn(const std::string& wanted, std::span<const std::string> columns) {
  std::string advice;
  if (nearNames(wanted, columns).empty()) {
    advice = fmt::format("If it is a text, put it in quotes: \"{}\".\n", shortened(wanted));
  }
  return advice + listNames("columns", wanted, columns, columnAsWritten);
}

}  // namespace

std::vector<std::string> Vocabulary::names() const {
  std::vector<std::string> all = aggregates;
  for (const ElementFunction& function : elementFunctions) {
    all.push_back(function.name);
  }
  return all;
}

void checkCalls(const Formula& formula, const Vocabulary& vocabulary) {
  Checker(formula, vocabulary).run();
}

void checkColumns(const Formula& formula, std::span<const std::string> columns) {
  for (const Step& step : formula.steps) {
    const auto* column = std::get_if<Column>(&step.what);
    if (column == nullptr || std::ranges::find(columns, column->name) != columns.end()) {
      continue;
    }
    throw UnknownColumn(formula.text, step.place,
                        fmt::format("there is no column \"{}\"", shortened(column->name)),
                        adviceOnColumn(column->name, columns));
  }
}

void checkPurpose(const Formula& formula, const Vocabulary& vocabulary, Purpose purpose) {
  assert(!formula.steps.empty());
  const Rows rows = Checker(formula, vocabulary).run();
  const Span place = formula.steps.back().place;
  if (purpose == Purpose::Condition && rows != Rows::Many) {
    throw FormulaError(formula.text, place, "this isn't a condition on rows",
                       formula.isNamed ? "Write == to compare."
                                       : "A condition uses columns, as in dep_delay > 60.");
  }
  if (purpose != Purpose::Condition && rows == Rows::Constant) {
    throw FormulaError(formula.text, place, "this formula uses no column");
  }
  if (purpose == Purpose::Result && rows == Rows::Many) {
    throw FormulaError(
        formula.text, place, "this has a value for each row, not a single value",
        fmt::format("Put an aggregate around it: {}.", fmt::join(vocabulary.aggregates, ", ")));
  }
}

}  // namespace kv::formula
