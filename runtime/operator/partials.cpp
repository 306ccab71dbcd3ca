#include "operator/partials.h"

#include <string>

#include "column/arrays.h"
#include "column/concatenate.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

Chunk stack(std::string_view label, const std::vector<Chunk>& arrays) {
  const Chunk* first = nullptr;
  for (const Chunk& array : arrays) {
    if (array.rows() == 0) {
      continue;
    }
    if (first == nullptr) {
      first = &array;
    }
    if (first->type() != array.type()) {
      errors::raiseStep("KALVEX:array:PartialTypes",
                        {std::string(label), std::string(elementTypeName(first->type())),
                         std::string(elementTypeName(array.type()))});
    }
    if (first->trailing != array.trailing) {
      errors::raiseStep(
          "KALVEX:array:PartialSizes",
          {std::string(label), describeSize(first->trailing), describeSize(array.trailing)});
    }
  }
  return concatenateArrays(arrays);
}

std::vector<Chunk> arraysOf(const MergeScope& scope, Partial partial) {
  return partial.reduced != nullptr ? scope.functions.partialsOf(scope.step, partial.reduced)
                                    : std::move(partial.arrays);
}

void requireOneRow(std::string_view label, const std::vector<Chunk>& arrays) {
  for (const Chunk& array : arrays) {
    if (array.rows() != 1) {
      errors::raiseStep("KALVEX:array:WrongRowCount",
                        {std::string(label), "1", std::to_string(array.rows())});
    }
  }
}

Partial Reducer::operator()(std::vector<Partial> partials) const {
  std::vector<std::vector<Chunk>> parts;
  for (Partial& partial : partials) {
    std::vector<Chunk> arrays = arraysOf(scope_, std::move(partial));
    parts.resize(arrays.size());
    for (std::size_t i = 0; i < arrays.size(); ++i) {
      parts[i].push_back(std::move(arrays[i]));
    }
  }
  std::vector<Chunk> stacks;
  for (const std::vector<Chunk>& part : parts) {
    stacks.push_back(stack(scope_.label, part));
  }
  return {.reduced = scope_.functions.reduce(scope_.step, stacks)};
}

}  // namespace kv::runtime
