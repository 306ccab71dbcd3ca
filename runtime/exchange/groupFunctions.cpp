#include <algorithm>

#include "aggregate/aggregateTable.h"
#include "exchange/GroupFold.h"
#include "exchange/folds.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

/// As the aggregate of all rows.
template <const AggregateFunction& aggregate>
std::optional<ElementType> typeOf(ElementType input) {
  return aggregate.type(input);
}

std::optional<ElementType> typeOfPicked(ElementType input) { return input; }
std::optional<ElementType> typeOfSize(ElementType /*input*/) { return ElementType::Int64; }

template <int lost, bool takesRoot>
std::unique_ptr<GroupFold> moments(MissingRule rule, ElementType type) {
  return makeMomentFold(rule, type, lost, takesRoot);
}

// clang-format off
constexpr GroupFunction kFunctions[] = {
    {"sum", "sum of the values; 0 for none", typeOf<kSum>, makeSumFold},
    {"mean", "arithmetic mean", typeOf<kMean>, makeMeanFold},
    {"min", "smallest value", typeOfPicked, makePickFold<Pick::Min>},
    {"max", "largest value", typeOfPicked, makePickFold<Pick::Max>},
    {"count", "number of values that aren't missing", typeOfSize, makeCountFold},
    {"std", "standard deviation, with n - 1", typeOf<kStd>, moments<1, true>},
    {"var", "variance, with n - 1", typeOf<kVar>, moments<1, false>},
    {"any", "true if any value is true", typeOf<kAny>, makeAnyFold},
    {"all", "true if all values are true", typeOf<kAll>, makeAllFold},
    {"stdp", "standard deviation, with n", typeOf<kStdP>, moments<0, true>},
    {"varp", "variance, with n", typeOf<kVarP>, moments<0, false>},
    {"first", "first value", typeOfPicked, makePickFold<Pick::First>},
    {"last", "last value", typeOfPicked, makePickFold<Pick::Last>},
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
