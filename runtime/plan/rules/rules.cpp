#include "plan/rules/rules.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"

namespace kv::runtime {

namespace {

constexpr Rule kRules[] = {
    {"columns", readNeededColumns},
    {"prune", skipRowGroups},
    {"groups", shareGroups},
};

[[noreturn]] void refuseSwitch(std::string_view word) {
  std::vector<std::string> switches;
  for (const Rule& rule : kRules) {
    switches.push_back(fmt::format("-{}", rule.name));
  }
  errors::raiseStep("KALVEX:optimizer:UnknownRule",
                    {errors::shownText(word), errors::shownNames(switches)});
}

}  // namespace

Rules rulesInForce() {
  const char* variable = std::getenv("KV_OPTIMIZER");
  std::string_view switches = variable != nullptr ? variable : "";
  Rules rules;
  for (const Rule& rule : kRules) {
    rules.push_back(&rule);
  }
  while (!switches.empty()) {
    const std::size_t comma = std::min(switches.find(','), switches.size());
    const std::string_view word = switches.substr(0, comma);
    const bool isKnown = word.starts_with('-') &&
                         std::ranges::find(kRules, word.substr(1), &Rule::name) != std::end(kRules);
    if (!isKnown) {
      refuseSwitch(word);
    }
    std::erase_if(rules, [&](const Rule* rule) { return rule->name == word.substr(1); });
    switches.remove_prefix(std::min(comma + 1, switches.size()));
  }
  return rules;
}

}  // namespace kv::runtime
