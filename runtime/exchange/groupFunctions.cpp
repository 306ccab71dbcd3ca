#include <algorithm>

#include "exchange/GroupFold.h"
#include "exchange/folds.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

/// As the aggregate of all rows.
template <AggregateKind kind>
std::optional<ElementType> typeOf(ElementType input) {
  return aggregateFunctions()[static_cast<std::size_t>(kind)].type(input);
}

std::optional<ElementType> typeOfPicked(ElementType input) { return input; }
std::optional<ElementType> typeOfSize(ElementType /*input*/) { return ElementType::Int64; }

template <Pick pick>
std::unique_ptr<GroupFold> picked(MissingRule rule, ElementType type) {
  return makePickFold(rule, type, pick);
}

template <int lost, bool takesRoot>
std::unique_ptr<GroupFold> moments(MissingRule rule, ElementType type) {
  return makeMomentFold(rule, type, lost, takesRoot);
}

// clang-format off
constexpr GroupFunction kFunctions[] = {
    {"sum", "sum of the values; 0 for none", typeOf<AggregateKind::Sum>, makeSumFold},
    {"mean", "arithmetic mean", typeOf<AggregateKind::Mean>, makeMeanFold},
    {"min", "smallest value", typeOfPicked, picked<Pick::Min>},
    {"max", "largest value", typeOfPicked, picked<Pick::Max>},
    {"count", "number of values that aren't missing", typeOfSize, makeCountFold},
    {"std", "standard deviation, with n - 1", typeOf<AggregateKind::Std>, moments<1, true>},
    {"var", "variance, with n - 1", typeOf<AggregateKind::Var>, moments<1, false>},
    {"any", "true if any value is true", typeOf<AggregateKind::Any>, makeAnyFold},
    {"all", "true if all values are true", typeOf<AggregateKind::All>, makeAllFold},
    {"stdp", "standard deviation, with n", typeOf<AggregateKind::StdP>, moments<0, true>},
    {"varp", "variance, with n", typeOf<AggregateKind::VarP>, moments<0, false>},
    {"first", "first value", typeOfPicked, picked<Pick::First>},
    {"last", "last value", typeOfPicked, picked<Pick::Last>},
    {"size", "number of rows", typeOfSize, makeSizeFold, true},
};
// clang-format on

}  // namespace

std::span<const GroupFunction> groupFunctions() { return kFunctions; }

const GroupFunction* findGroupFunction(std::string_view name) {
  const auto* found = std::ranges::find(kFunctions, name, &GroupFunction::name);
  return found == std::end(kFunctions) ? nullptr : found;
}

ElementType groupFunctionType(const GroupFunction& function, ElementType input) {
  const auto type = function.type(input);
  if (!type) {
    errors::raiseStep("KALVEX:function:BadTypes",
                      {std::string(function.name), std::string(elementTypeName(input))});
  }
  return *type;
}

}  // namespace kv::runtime
