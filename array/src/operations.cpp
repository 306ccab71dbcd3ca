// Recording an operation has three parts: decide the result type from the types of the inputs,
// adapt the constants that the user wrote to these types, and call the core by name. All type
// errors are raised here, at the user's line, and not when the array is evaluated. Constants stay
// constants: an operation on constants only is computed at once and can adapt again later.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "handles.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/constants.h"
#include "kv/runtime/functionNames.h"

namespace kv {

namespace {

using runtime::ElementType;

[[noreturn]] void raiseUnknownFunction(std::string_view kind, std::string_view name) {
  raiseError("KALVEX:array:UnknownFunction", {std::string(name), std::string(kind)});
}

using RecordedOperands = boost::container::small_vector<runtime::RecordedOperand, 3>;

bool isConstant(const runtime::RecordedOperand& input) { return input.isWeak; }

bool isTextOrTime(const runtime::RecordedOperand& input) {
  return input.type == ElementType::String || input.type == ElementType::DateTime ||
         input.type == ElementType::Duration;
}

std::vector<runtime::ColumnOperand> columnsOf(std::span<const Operand> inputs) {
  std::vector<runtime::ColumnOperand> columns;
  for (const Operand& input : inputs) {
    columns.push_back(operandOf(input));
  }
  return columns;
}

/// The inputs of a call as they are recorded, with constants in the types to which they adapt.
struct AdaptedInputs {
  boost::container::small_vector<runtime::OperandType, 3> types;
  CallInputs values;
};

void addInput(AdaptedInputs& adapted, ElementType type, const Operand& input, bool isConstant,
              auto&& recorded) {
  adapted.types.push_back({type});
  if (isConstant) {
    adapted.values.give(runtime::recordedValue(recorded));
  } else {
    adapted.values.lend(std::get<Array>(input.value()).handle().value.get());
  }
}

/// Errors: those of runtime::adaptConstants.
void addInputs(AdaptedInputs& adapted, const runtime::ElementFunction& function,
               std::span<const Operand> inputs, const RecordedOperands& operands) {
  const bool needsColumns =
      std::ranges::any_of(operands, isTextOrTime) && std::ranges::any_of(operands, isConstant);
  if (needsColumns) {
    const auto columns = runtime::adaptConstants(function, columnsOf(inputs));
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      addInput(adapted, columns[i].column.type(), inputs[i], isConstant(operands[i]), columns[i]);
    }
    return;
  }
  RecordedOperands numbers = operands;
  runtime::adaptNumbers(function, {numbers.data(), numbers.size()});
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    addInput(adapted, numbers[i].type, inputs[i], isConstant(operands[i]), numbers[i]);
  }
}

Arrays arraysAmong(std::span<const Operand> operands) {
  Arrays arrays;
  for (const Operand& operand : operands) {
    if (const auto* array = std::get_if<Array>(&operand.value())) {
      arrays.push_back(*array);
    }
  }
  return arrays;
}

Array applyHere(std::string_view function, const Operand& a) {
  return apply(function, std::span(&a, 1), a.where());
}

Array applyHere(std::string_view function, const Operand& a, const Operand& b) {
  return translated([&] { return apply(function, std::array{a, b}, a.where()); });
}

}  // namespace

Array apply(std::string_view function, std::span<const Operand> inputs, Where where) {
  const auto* row = runtime::findElementFunction(function);
  if (row == nullptr) {
    raiseUnknownFunction("element function", function);
  }
  const Arrays arrays = translated([&] { return arraysAmong(inputs); });
  const auto session = sessionOf({arrays.data(), arrays.size()});
  return recordingCall(*session, where, [&] {
    RecordedOperands operands;
    for (const Operand& input : inputs) {
      operands.push_back(recordedOperand(input));
    }
    if (inputs.size() == row->arity && std::ranges::all_of(operands, isConstant)) {
      return makeConstant(session, runtime::foldConstants(*row, columnsOf(inputs)));
    }
    AdaptedInputs adapted;
    adapted.values.lend(session->functions.of(*row));
    addInputs(adapted, *row, inputs, operands);
    const ElementType type =
        runtime::resolve(*row, {adapted.types.data(), adapted.types.size()}).result;
    RowTraits traits = traitsOf(function, inputs, {arrays.data(), arrays.size()}, where);
    return makeArray(session, host::call("elementfun", adapted.values.list()), type,
                     std::move(traits));
  });
}

Array aggregate(std::string_view name, const Array& input, Missing missing, Where where) {
  return aggregate(name, input, Reduction{.missing = missing}, where);
}

Array aggregate(std::string_view name, const Array& input, const Reduction& reduction,
                Where where) {
  const auto* row = runtime::findAggregateFunction(name);
  if (row == nullptr) {
    raiseUnknownFunction("aggregate", name);
  }
  const bool skips = reduction.missing == Missing::Skip;
  const runtime::AggregateForm form{
      skips ? runtime::MissingRule::Skip : runtime::MissingRule::Propagate, reduction.isWhole,
      reduction.needsRows};
  const auto session = live(input.handle().session);
  return recordingCall(*session, where, [&] {
    const ElementType type = runtime::aggregateType(row->kind, input.handle().type);
    const std::string function = runtime::aggregateFunctionName(name, form);
    const kxArray* handle = session->functions.of(*row, form);
    auto result = host::call("aggregatefun", {handle, handle, input.handle().value.get()});
    return makeArray(session, std::move(result), type,
                     traitsOfAggregate(function, input, form.isWhole));
  });
}

Array filter(const Array& input, const Array& keep, Where where) {
  requireCondition(keep);
  const auto session = sessionOf(std::array{input, keep});
  return recordingCall(*session, where, [&] {
    RowTraits traits = traitsOfFiltered(input, keep, where);
    auto rows = host::call("filterslices", {keep.handle().value.get(), input.handle().value.get()});
    return makeArray(session, std::move(rows), input.handle().type, std::move(traits));
  });
}

Array operator+(const Operand& a, const Operand& b) { return applyHere("plus", a, b); }
Array operator-(const Operand& a, const Operand& b) { return applyHere("minus", a, b); }
Array operator*(const Operand& a, const Operand& b) { return applyHere("times", a, b); }
Array operator/(const Operand& a, const Operand& b) { return applyHere("rdivide", a, b); }
Array operator%(const Operand& a, const Operand& b) { return applyHere("mod", a, b); }
Array operator==(const Operand& a, const Operand& b) { return applyHere("eq", a, b); }
Array operator!=(const Operand& a, const Operand& b) { return applyHere("ne", a, b); }
Array operator<(const Operand& a, const Operand& b) { return applyHere("lt", a, b); }
Array operator<=(const Operand& a, const Operand& b) { return applyHere("le", a, b); }
Array operator>(const Operand& a, const Operand& b) { return applyHere("gt", a, b); }
Array operator>=(const Operand& a, const Operand& b) { return applyHere("ge", a, b); }
Array operator&(const Operand& a, const Operand& b) { return applyHere("and", a, b); }
Array operator|(const Operand& a, const Operand& b) { return applyHere("or", a, b); }
Array operator!(const Operand& a) { return applyHere("not", a); }
Array operator-(const Operand& a) { return applyHere("uminus", a); }

Array abs(const Operand& a) { return applyHere("abs", a); }
Array sqrt(const Operand& a) { return applyHere("sqrt", a); }
Array exp(const Operand& a) { return applyHere("exp", a); }
Array log(const Operand& a) { return applyHere("log", a); }
Array isnan(const Operand& a) { return applyHere("isnan", a); }
Array where(const Operand& condition, const Operand& a, const Operand& b) {
  return translated([&] { return apply("where", std::array{condition, a, b}, condition.where()); });
}

Array sum(const Array& a, Missing missing, Where where) {
  return aggregate("sum", a, missing, where);
}
Array mean(const Array& a, Missing missing, Where where) {
  return aggregate("mean", a, missing, where);
}
Array min(const Array& a, Missing missing, Where where) {
  return aggregate("min", a, missing, where);
}
Array max(const Array& a, Missing missing, Where where) {
  return aggregate("max", a, missing, where);
}
Array count(const Array& a, Where where) { return aggregate("count", a, Missing::Skip, where); }
Array std(const Array& a, Missing missing, Where where) {
  return aggregate("std", a, missing, where);
}
Array var(const Array& a, Missing missing, Where where) {
  return aggregate("var", a, missing, where);
}

std::vector<FunctionFacts> elementFunctions() {
  std::vector<FunctionFacts> facts;
  for (const runtime::ElementFunction& row : runtime::elementFunctions()) {
    facts.push_back({std::string(row.name), std::string(row.symbol), row.arity,
                     std::string(row.summary), row.takesTexts(),
                     row.rule == runtime::TypeRule::Comparison});
  }
  return facts;
}

std::vector<FunctionFacts> aggregates() {
  std::vector<FunctionFacts> facts;
  for (const runtime::AggregateFunction& row : runtime::aggregateFunctions()) {
    facts.push_back({std::string(row.name), "", 1, std::string(row.summary)});
  }
  return facts;
}

}  // namespace kv
