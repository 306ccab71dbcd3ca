// What a user's function sees follows from the data and the graph alone. So the number of rows that
// was asked for with resizechunks goes along with an array like its rows: through filters, zips and
// even values that were gathered. A function gets frames of as many rows of what it is applied to;
// only where the rows aren't cut like that yet, a frame step is put before it.

#include "engine/cuts.h"

#include <algorithm>
#include <cassert>
#include <map>
#include <tuple>

namespace kv::runtime {

const Cut& CutFinder::add(const Step& step) {
  Cut cut{.frameRows = frameRowsOf(step)};
  const OperatorFacts& facts = step.op->facts();
  if (isFlow(*step.op)) {
    cut.segment = segments_++;
    cut.isFramed = facts.frameRows > 0;
    cut.frameRows = cut.isFramed ? facts.frameRows : cut.frameRows;
  } else {
    for (const std::size_t input : rowInputs(step)) {
      cut.segment = std::max(cut.segment, cutOf(step.inputs[input]).segment);
    }
    cut.isFramed = isFramed(step) && facts.rows != RowEffect::Filter;
  }
  if (facts.rows == RowEffect::Renew) {
    cut.madeBy = cuts_.size();
    made_.emplace(step.rowSpace, cut);
  } else if (const std::vector<std::size_t> rows = rowInputs(step); !rows.empty()) {
    cut.madeBy = cutOf(step.inputs[rows.front()]).madeBy;
  }
  return cuts_.emplace_back(cut);
}

std::vector<std::size_t> CutFinder::rowInputs(const Step& step) const {
  std::vector<std::size_t> rows;
  for (std::size_t input = 0; input < step.inputs.size(); ++input) {
    const StepLink& link = step.inputs[input];
    if (!link.isStageInput || hasPlaces(link)) {
      rows.push_back(input);
    }
  }
  return rows;
}

Cut CutFinder::cutOf(const StepLink& link) const {
  assert(link.isStageInput || link.index < cuts_.size());
  if (!link.isStageInput) {
    return cuts_[link.index];
  }
  if (!hasPlaces(link)) {
    return {};
  }
  const RowPlaces& places = *inputs_[link.index];
  Cut cut{.frameRows = places.frameRows};
  if (const auto made = made_.find(places.cut->source); made != made_.end()) {
    cut.segment = made->second.segment;
    cut.madeBy = made->second.madeBy;
  }
  return cut;
}

std::int64_t CutFinder::frameRowsOf(const Step& step) const {
  std::int64_t least = 0;
  for (const std::size_t input : rowInputs(step)) {
    const std::int64_t rows = cutOf(step.inputs[input]).frameRows;
    least = least == 0 || rows == 0 ? std::max(least, rows) : std::min(least, rows);
  }
  return least;
}

bool CutFinder::isAligned(const Step& step) const {
  const std::vector<std::size_t> rows = rowInputs(step);
  return std::ranges::all_of(rows, [&](std::size_t input) {
    return cutOf(step.inputs[input]).segment == cutOf(step.inputs[rows.front()]).segment;
  });
}

bool CutFinder::isFramed(const Step& step) const {
  const std::vector<std::size_t> rows = rowInputs(step);
  return !rows.empty() && isAligned(step) && cutOf(step.inputs[rows.front()]).isFramed;
}

namespace {

class Aligner {
 public:
  explicit Aligner(InputPlaces inputs) : finder_(std::move(inputs)) {}

  AlignedSteps align(std::vector<Step> steps) {
    for (std::size_t number = 0; number < steps.size(); ++number) {
      Step& step = steps[number];
      for (StepLink& link : step.inputs) {
        link.index = link.isStageInput ? link.index : aligned_.placeOf.at(link.index);
      }
      if (!isFlow(*step.op)) {
        alignInputs(step, number);
      }
      aligned_.placeOf.push_back(add(std::move(step), number));
    }
    return std::move(aligned_);
  }

 private:
  /// Leads the inputs of a step that have rows through a flow step if they need one.
  void alignInputs(Step& step, std::size_t number) {
    const std::vector<std::size_t> rows = finder_.rowInputs(step);
    const std::int64_t frameRows = finder_.frameRowsOf(step);
    const OperatorFacts& facts = step.op->facts();
    const bool needsFrames = facts.seesFrames || (facts.callsUser && frameRows > 0);
    const bool fits = needsFrames ? finder_.isFramed(step) : finder_.isAligned(step);
    if (rows.empty() || fits) {
      return;
    }
    std::vector<StepLink> links;
    for (const std::size_t input : rows) {
      links.push_back(step.inputs[input]);
    }
    const auto [known, isNew] = made_.try_emplace({needsFrames, frameRows, links}, 0);
    if (isNew) {
      known->second = add({needsFrames ? makeFrame(frameRows) : makeZip(), std::move(links),
                           rows.size(), step.label, step.origin},
                          number);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
      step.inputs[rows[i]] = {.index = known->second, .output = i};
    }
  }

  std::size_t add(Step step, std::size_t madeFor) {
    finder_.add(step);
    aligned_.steps.push_back(std::move(step));
    aligned_.madeFor.push_back(madeFor);
    return aligned_.steps.size() - 1;
  }

  CutFinder finder_;
  AlignedSteps aligned_;
  std::map<std::tuple<bool, std::int64_t, std::vector<StepLink>>, std::size_t> made_;
};

}  // namespace

AlignedSteps alignCuts(std::vector<Step> steps, InputPlaces inputs) {
  return Aligner(std::move(inputs)).align(std::move(steps));
}

}  // namespace kv::runtime
