// A row group may be skipped if no row of it can get through the filters between the read and
// everything else. So from the reads on, the rule follows the rows through steps that do nothing
// but compute on rows, and notes for each step the conditions that its rows have passed. Where a
// row leaves these steps, for an aggregate or a user-defined function, its conditions count; what
// all such rows have passed is given to the read. The filters stay as they are.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "plan/rules/rules.h"

namespace kv::runtime {

namespace {

using Conditions = std::vector<ReadCondition>;

/// More conditions than that hardly skip more, and each step has a list of them.
constexpr std::size_t kMostConditions = 16;

/// The comparison with its sides exchanged; empty for a function that bounds nothing.
std::string_view exchanged(std::string_view comparison) {
  constexpr std::pair<std::string_view, std::string_view> kComparisons[] = {
      {"lt", "gt"}, {"le", "ge"}, {"gt", "lt"}, {"ge", "le"}, {"eq", "eq"}};
  const auto* found = std::ranges::find(kComparisons, comparison,
                                        &std::pair<std::string_view, std::string_view>::first);
  return found == std::end(kComparisons) ? std::string_view() : found->second;
}

bool isFilter(const Step& step) { return step.op->facts().rows == RowEffect::Filter; }

const TakenColumns* takenColumns(const Step& step) {
  const auto* keeper = step.op->as<StepOperator>();
  return keeper != nullptr ? keeper->takenColumns() : nullptr;
}

class PassedConditions {
 public:
  explicit PassedConditions(const PassGraph& graph) : graph_(graph), passed_(graph.steps.size()) {
    std::map<std::tuple<int, std::size_t, std::uint64_t, std::uint64_t>, std::size_t> first;
    for (std::size_t i = 0; i < graph.inputs.size(); ++i) {
      const PlanInput& from = graph.inputs[i].from;
      const Hash128 content = from.constant.value_or(Hash128{0, from.value});
      firstLike_.push_back(
          first.try_emplace({from.task, from.output, content.high, content.low}, i).first->second);
    }
  }

  /// What all rows have passed where they leave the steps that are followed.
  Conditions find() {
    for (std::size_t step = 0; step < graph_.steps.size(); ++step) {
      const Step& planned = graph_.steps[step];
      if (planned.op->as<ReadOperator>() != nullptr) {
        passed_[step] = Conditions();
      } else if (isFollowed(planned)) {
        passed_[step] = conditionsAfter(planned);
      } else {
        leave(planned);
      }
    }
    return left_.value_or(Conditions());
  }

 private:
  /// True for a step that gives the same for a row whichever others there are, and has no other
  /// effect. A power may fail for a row.
  bool isFollowed(const Step& step) const {
    const ElementFunction* function = step.op->facts().elementFunction;
    const bool isFollowedKind = (function != nullptr && function->rule != TypeRule::Power) ||
                                takenColumns(step) != nullptr || isFilter(step);
    return isFollowedKind && std::ranges::all_of(step.inputs, [this](const StepLink& link) {
             return link.isStageInput || passed_[link.index].has_value();
           });
  }

  void leave(const Step& step) {
    for (const StepLink& link : step.inputs) {
      if (link.isStageInput || !passed_[link.index]) {
        continue;
      }
      const Conditions& here = *passed_[link.index];
      if (!left_) {
        left_ = here;
      }
      std::erase_if(*left_, [&](const ReadCondition& condition) {
        return std::ranges::find(here, condition) == here.end();
      });
    }
  }

  Conditions conditionsAfter(const Step& step) const {
    Conditions all;
    for (const StepLink& link : step.inputs) {
      if (!link.isStageInput) {
        addTo(all, *passed_[link.index]);
      }
    }
    if (isFilter(step)) {
      addTo(all, conjunctsOf(step.inputs.front()));
    }
    return all;
  }

  static void addTo(Conditions& all, const Conditions& more) {
    for (const ReadCondition& condition : more) {
      if (all.size() < kMostConditions && std::ranges::find(all, condition) == all.end()) {
        all.push_back(condition);
      }
    }
  }

  /// The comparisons that must all be true where a logical is. A loop, since a user may write a
  /// long conjunction.
  Conditions conjunctsOf(const StepLink& logical) const {
    Conditions found;
    std::vector<StepLink> open{logical};
    while (!open.empty() && found.size() < kMostConditions) {
      const StepLink link = open.back();
      open.pop_back();
      const ElementFunction* function =
          link.isStageInput ? nullptr : graph_.steps[link.index].op->facts().elementFunction;
      if (function == nullptr || function->arity != 2) {
        continue;
      }
      const std::vector<StepLink>& sides = graph_.steps[link.index].inputs;
      if (function->name == "and") {
        open.insert(open.end(), sides.begin(), sides.end());
      } else if (auto condition = conditionOf(function->name, sides[0], sides[1])) {
        found.push_back(*std::move(condition));
      } else if (condition = conditionOf(exchanged(function->name), sides[1], sides[0])) {
        found.push_back(*std::move(condition));
      }
    }
    return found;
  }

  std::optional<ReadCondition> conditionOf(std::string_view comparison, const StepLink& column,
                                           const StepLink& value) const {
    const bool isKnown = !exchanged(comparison).empty() && value.isStageInput &&
                         graph_.inputs[value.index].from.places == nullptr;
    std::optional<std::string> name = isKnown ? columnOf(column) : std::nullopt;
    return name ? std::optional(ReadCondition{*std::move(name), std::string(comparison),
                                              firstLike_[value.index]})
                : std::nullopt;
  }

  /// The column of the source that a step's result is, for some of its rows.
  std::optional<std::string> columnOf(StepLink link) const {
    std::optional<std::string> name;
    while (!link.isStageInput) {
      const Step& step = graph_.steps[link.index];
      if (step.op->as<ReadOperator>() != nullptr) {
        return name;
      }
      if (const TakenColumns* taken = takenColumns(step)) {
        name = name || !taken->isContent ? name : taken->names.front();
        link = step.inputs.front();
      } else if (isFilter(step) && step.inputs.size() > link.output + 1) {
        link = step.inputs[link.output + 1];
      } else {
        return std::nullopt;
      }
    }
    return std::nullopt;
  }

  const PassGraph& graph_;
  std::vector<std::optional<Conditions>> passed_;  ///< by step; none for one that isn't followed
  std::optional<Conditions> left_;
  std::vector<std::size_t> firstLike_;  ///< of each input, the first that is the same value
};

bool readsSeveral(const PassGraph& graph) {
  std::set<std::string> sources;
  for (const Step& step : graph.steps) {
    if (const auto* read = step.op->as<ReadOperator>()) {
      sources.insert(read->source()->fingerprint());
    }
  }
  return sources.size() > 1;
}

bool isRow(const PassInput& input) { return input.from.places != nullptr; }

bool hasColumns(const Schema& schema, const Conditions& conditions) {
  return std::ranges::all_of(conditions, [&](const ReadCondition& condition) {
    const auto column = std::ranges::find(schema, condition.column, &ColumnInfo::name);
    return column != schema.end() && column->isReadable();
  });
}

}  // namespace

// Rows in memory, or of another source, that flow beside those of the source would miss their
// partners.
void skipRowGroups(PassGraph& graph) {
  if (std::ranges::any_of(graph.inputs, isRow) || readsSeveral(graph)) {
    return;
  }
  const Conditions conditions = PassedConditions(graph).find();
  for (Step& step : graph.steps) {
    const auto* read = step.op->as<ReadOperator>();
    const bool mayBeUsed = read != nullptr && read->source()->canSkipRows() &&
                           !conditions.empty() && hasColumns(read->source()->schema(), conditions);
    if (mayBeUsed) {
      step.op = makeRead(read->source(), read->columns(), conditions);
    }
  }
}

}  // namespace kv::runtime
