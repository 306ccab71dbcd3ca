#pragma once

#include <string_view>
#include <utility>
#include <vector>

#include "operator/scopes.h"

/// Partial results of users' reductions.
namespace kv::runtime {

/// A partial result: of the first function, or of the second.
struct Partial {
  std::vector<Chunk> arrays{};
  ReducedValues reduced{};
};

/// The rows of all arrays in order.
/// Errors: "KALVEX:array:PartialTypes" with both types, or "KALVEX:array:PartialSizes" with both
///         sizes, if two arrays with rows differ.
Chunk stack(std::string_view label, const std::vector<Chunk>& arrays);

/// The arrays of a partial result, one for each output.
/// Errors: those of UserFunctions::partialsOf.
std::vector<Chunk> arraysOf(const MergeScope& scope, Partial partial);

/// Errors: "KALVEX:array:WrongRowCount" with the label and the rows of an array that hasn't one.
void requireOneRow(std::string_view label, const std::vector<Chunk>& arrays);

/// Reduces partial results of one step to one.
///
/// Lives: the label outlives it.
class Reducer {
 public:
  explicit Reducer(const MergeScope& scope) : scope_(scope) {}

  Partial operator()(std::vector<Partial> partials) const;

 private:
  MergeScope scope_;
};

}  // namespace kv::runtime
