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

ElementType resultType(const runtime::ElementFunction& function,
                       std::span<const runtime::ColumnOperand> inputs) {
  std::vector<runtime::OperandType> types;
  for (const runtime::ColumnOperand& input : inputs) {
    types.push_back({input.column.type()});
  }
  return runtime::resolve(function, types).result;
}

bool isConstant(const runtime::ColumnOperand& input) { return input.isWeak; }

std::vector<Array> arraysAmong(std::span<const Operand> operands) {
  std::vector<Array> arrays;
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
  const std::vector<Array> arrays = translated([&] { return arraysAmong(inputs); });
  const auto session = sessionOf(arrays);
  return publicCall(*session, where, [&] {
    std::vector<runtime::ColumnOperand> operands;
    for (const Operand& input : inputs) {
      operands.push_back(operandOf(input));
    }
    if (inputs.size() == row->arity && std::ranges::all_of(operands, isConstant)) {
      return makeConstant(session, runtime::foldConstants(*row, operands));
    }
    const std::vector<runtime::ColumnOperand> adapted = runtime::adaptConstants(*row, operands);
    const ElementType type = resultType(*row, adapted);
    RowTraits traits = traitsOf(function, inputs, where);
    CallInputs call;
    call.give(host::makeFunctionHandle(runtime::elementFunctionName(function)));
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      if (isConstant(operands[i])) {
        call.give(runtime::recordedValue(adapted[i]));
      } else {
        call.lend(std::get<Array>(inputs[i].value()).handle().value);
      }
    }
    return makeArray(session, host::call("elementfun", call.list()), type, std::move(traits));
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
  return publicCall(*session, where, [&] {
    const ElementType type = runtime::aggregateType(row->kind, input.handle().type);
    const std::string function = runtime::aggregateFunctionName(name, form);
    const auto handle = host::makeFunctionHandle(function);
    auto result =
        host::call("aggregatefun", {handle.get(), handle.get(), input.handle().value.get()});
    return makeArray(session, std::move(result), type,
                     traitsOfAggregate(function, input, form.isWhole));
  });
}

Array filter(const Array& input, const Array& keep, Where where) {
  requireCondition(keep);
  const auto session = sessionOf(std::array{input, keep});
  return publicCall(*session, where, [&] {
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
