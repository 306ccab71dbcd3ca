#include "plan/stepNeeds.h"

#include <cassert>
#include <cstddef>

namespace kv::runtime {

namespace {

/// False for a choice that isn't made yet: it passes one of its inputs.
bool passesEachInput(const Step& step) {
  return step.op->facts().passesInputs && step.numOutputs == step.inputs.size();
}

}  // namespace

std::vector<ColumnNeeds> needsOfSteps(const std::vector<Step>& steps) {
  std::vector<ColumnNeeds> asked(steps.size());
  std::vector<std::vector<ColumnNeeds>> ofPassed(steps.size());  // by output
  for (std::size_t i = steps.size(); i-- > 0;) {
    const Step& step = steps[i];
    ofPassed[i].resize(passesEachInput(step) ? step.inputs.size() : 0);
    for (std::size_t input = 0; input < step.inputs.size(); ++input) {
      const StepLink& link = step.inputs[input];
      if (!link.isStageInput) {
        assert(link.index < i);
        const ColumnNeeds& later = ofPassed[i].empty() ? asked[i] : ofPassed[i][input];
        const ColumnNeeds needs = step.op->needsOf(input, later);
        asked[link.index].add(needs);
        if (passesEachInput(steps[link.index])) {
          ofPassed[link.index].resize(steps[link.index].inputs.size());
          ofPassed[link.index].at(link.output).add(needs);
        }
      }
    }
  }
  return asked;
}

}  // namespace kv::runtime
