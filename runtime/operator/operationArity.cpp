#include "operator/operationArity.h"

#include <fmt/core.h>

#include <string>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

[[noreturn]] void raiseArity(std::string_view className, const std::string& expected,
                             std::size_t count) {
  errors::raiseStep("KALVEX:array:OperationArity",
                    {std::string(className), expected, std::to_string(count)});
}

std::string counted(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::size_t outputsFor(OutputRule rule, std::size_t numInputs, std::size_t numOutputs) {
  switch (rule) {
    case OutputRule::One:
      return 1;
    case OutputRule::PerInput:
      return numInputs;
    case OutputRule::PerKept:
      return numInputs - 1;
    default:
      return numOutputs;
  }
}

}  // namespace

void requireArity(std::string_view className, const OperationArity& arity, std::size_t numInputs,
                  std::size_t numOutputs) {
  const auto [least, most, rule] = arity;
  if (numInputs < least || numInputs > most) {
    const std::string limit = least == most ? "" : numInputs < least ? "at least " : "at most ";
    raiseArity(className, limit + counted(numInputs < least ? least : most, "input"), numInputs);
  }
  if (const std::size_t outputs = outputsFor(rule, numInputs, numOutputs); outputs != numOutputs) {
    raiseArity(className, counted(outputs, "output"), numOutputs);
  }
}

}  // namespace kv::runtime
