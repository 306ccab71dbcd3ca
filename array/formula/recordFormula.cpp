// Turns the postfix steps of a formula into calls of the C++ front end with a stack of operands.
// The position of each step is recorded as the user's line, so that errors, also those of a later
// evaluation, can mark the part of the formula that caused them.

#include "formula/recordFormula.h"

#include <fmt/format.h>
#include <kv/userPlace.h>

#include <algorithm>
#include <cassert>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formula/FormulaError.h"
#include "formula/tokens.h"
#include "formula/utf8.h"

namespace kv::formula {

namespace {

constexpr char kRandom[] = "rand";

StackFrame placeOf(const Step& step, const std::string& source) {
  return {source, "", static_cast<int>(step.place.begin) + 1};
}

/// Of the name of an element type: int8 to int64, uint8 to uint64.
bool isIntegerType(std::string_view type) {
  return type.starts_with("int") || type.starts_with("uint");
}

/// Processes the steps of a formula; results that haven't been used yet are on a stack.
class Recorder {
 public:
  Recorder(Session& session, const Table& table, const Formula& formula, const std::string& source,
           TypeAdvice advice)
      : session_(session), table_(table), formula_(formula), source_(source), advice_(advice) {
    for (const FunctionFacts& facts : aggregates()) {
      aggregates_.push_back(facts.name);
    }
  }

  Array run() {
    for (const Step& step : formula_.steps) {
      const UserPlace here(session_, placeOf(step, source_));
      stack_.push_back(
          std::visit([&](const auto& what) { return record(what, step.place); }, step.what));
    }
    assert(stack_.size() == 1);
    return arrayOf(stack_.back().value);
  }

 private:
  struct Part {
    Operand value;
    std::string column{};           ///< its name in the files, if the value is a column
    std::optional<Span> rounded{};  ///< the place of a whole number that fits no type
  };

  Part record(const Constant& constant, Span place) const {
    return {std::visit([](const auto& value) { return Operand(value); }, constant.value),
            {},
            constant.isRounded ? std::optional(place) : std::nullopt};
  }

  Part record(const Column& column, Span) const {
    return {table_.column(column.name), column.name};
  }

  Part record(const Call& call, Span place) {
    assert(stack_.size() >= call.inputs);
    const auto first = stack_.end() - static_cast<std::ptrdiff_t>(call.inputs);
    const std::vector<Part> inputs(first, stack_.end());
    stack_.erase(first, stack_.end());
    std::vector<Operand> values;
    for (const Part& input : inputs) {
      values.push_back(input.value);
    }
    refuseRounded(call.function, inputs);
    try {
      return {recordCall(call.function, values), {}};
    } catch (const Error& error) {
      const bool isOfFormula = error.identifier().starts_with("KALVEX:function:") ||
                               error.identifier() == "KALVEX:array:NotExact";
      if (!isOfFormula) {
        throw;
      }
      const bool isOfTypes = error.identifier() == "KALVEX:function:BadTypes";
      throw FormulaError(formula_.text, place, error.what(),
                         isOfTypes ? adviceOnTypes(call.function, inputs) : "");
    }
  }

  /// A whole number that fits no type is farther from zero than any integer, so comparisons with
  /// integers give the same answers for the double nearest to it. No other use is exact.
  void refuseRounded(const std::string& function, const std::vector<Part>& inputs) const {
    const auto isInteger = [](const Part& input) {
      const auto* array = std::get_if<Array>(&input.value.value());
      return array != nullptr && isIntegerType(array->type());
    };
    if (factsOf(function).isComparison && std::ranges::any_of(inputs, isInteger)) {
      return;
    }
    for (const Part& input : inputs) {
      if (input.rounded) {
        throw FormulaError(formula_.text, *input.rounded, "no number type holds this whole number",
                           fmt::format("If the nearest double will do, write {}.",
                                       std::get<double>(input.value.value())));
      }
    }
  }

  /// A column is text as soon as one field of the first block isn't a number, and is read as
  /// numbers if it has no values at all.
  std::string adviceOnTypes(const std::string& function, const std::vector<Part>& inputs) const {
    std::string advice;
    bool hasText = false;
    for (const Part& input : inputs) {
      const auto* array = std::get_if<Array>(&input.value.value());
      const bool isWritten =
          array == nullptr && std::holds_alternative<std::string>(input.value.value());
      hasText = hasText || isWritten || (array != nullptr && array->type() == "string");
      if (isWritten) {
        advice += "Numbers are written without quotes.\n";
      } else if (!input.column.empty() && array->type() == "string") {
        advice += adviceOnColumn(input.column, "texts", "numbers", "double");
      }
    }
    for (const Part& input : inputs) {
      const auto* array = std::get_if<Array>(&input.value.value());
      if (hasText && factsOf(function).takesTexts && !input.column.empty() &&
          array->type() == "double") {
        advice += adviceOnColumn(input.column, "numbers, or has no values", "text", "string");
      }
    }
    return advice.substr(0, advice.find_last_not_of('\n') + 1);
  }

  std::string adviceOnColumn(const std::string& column, std::string_view held,
                             std::string_view meant, std::string_view type) const {
    return fmt::format("{} is a column of {}. To read it as {}: {}.\n",
                       shortened(columnAsWritten(column)), held, meant, advice_(column, type));
  }

  /// What is known of a function of rows; nothing of an aggregate.
  const FunctionFacts& factsOf(const std::string& function) const {
    static const FunctionFacts kNone;
    const auto found = std::ranges::find(functions_, function, &FunctionFacts::name);
    return found != functions_.end() ? *found : kNone;
  }

  Array arrayOf(const Operand& value) const {
    const auto* array = std::get_if<Array>(&value.value());
    return array != nullptr ? *array : session_.constant(value);
  }

  Array recordCall(const std::string& function, std::vector<Operand> inputs) {
    if (std::ranges::find(aggregates_, function) != aggregates_.end()) {
      return kv::aggregate(function, arrayOf(inputs.front()));
    }
    if (function == kRandom) {
      return table_.rand();
    }
    const bool hasArray = std::ranges::any_of(
        inputs, [](const Operand& input) { return std::holds_alternative<Array>(input.value()); });
    // Constants alone also make an array; it is computed while it is recorded.
    if (!hasArray) {
      inputs.front() = session_.constant(inputs.front());
    }
    return kv::apply(function, inputs);
  }

  Session& session_;
  const Table& table_;
  const Formula& formula_;
  const std::string& source_;
  TypeAdvice advice_;
  std::vector<FunctionFacts> functions_ = elementFunctions();
  std::vector<std::string> aggregates_;
  std::vector<Part> stack_;
};

}  // namespace

std::vector<FunctionFacts> rowFunctions() {
  std::vector<FunctionFacts> functions = elementFunctions();
  functions.push_back({kRandom, "", 0, "a uniform random number in [0, 1) for each row"});
  return functions;
}

Vocabulary arrayVocabulary() {
  Vocabulary vocabulary;
  for (const FunctionFacts& facts : rowFunctions()) {
    vocabulary.elementFunctions.push_back({facts.name, facts.inputs});
  }
  for (const FunctionFacts& facts : aggregates()) {
    vocabulary.aggregates.push_back(facts.name);
  }
  return vocabulary;
}

Array recordFormula(Session& session, const Table& table, const Formula& formula,
                    const std::string& source, TypeAdvice advice) {
  return Recorder(session, table, formula, source, advice).run();
}

Table keepRows(Session& session, const Table& table, const Formula& condition,
               const std::string& source, TypeAdvice advice) {
  const Array keep = recordFormula(session, table, condition, source, advice);
  const Step& last = condition.steps.back();
  if (keep.type() != "logical") {
    throw FormulaError(condition.text, last.place,
                       fmt::format("a condition must be logical, but this is {}", keep.type()),
                       "Compare it with something, as in dep_delay > 60.");
  }
  const UserPlace here(session, placeOf(last, source));
  return table.filter(keep);
}

Error markedError(const Error& error, const Formula& formula, const std::string& source) {
  if (error.stack().empty() || error.stack().front().file != source) {
    return error;
  }
  const int line = error.stack().front().line;
  const auto isThere = [&](const Step& step) { return placeOf(step, source).line == line; };
  const auto step = std::ranges::find_if(formula.steps, isThere);
  if (step == formula.steps.end()) {
    return error;
  }
  return {error.identifier(),
          fmt::format("{}\n{}", error.what(), markedFormula(formula.text, step->place)),
          error.arguments(), error.stack(), error.cause()};
}

}  // namespace kv::formula
