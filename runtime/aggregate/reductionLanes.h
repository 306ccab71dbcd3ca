#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "aggregate/reductionValues.h"
#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

// The lanes of one block. Both kinds have the same interface:
//
//   add(lane, value)          adds one value
//   addGroups(values, groups) adds `groups` values to each lane
//   close()                   returns the value of the block and empties the lanes
//
// `add` and `addGroups` do the same arithmetic, so it doesn't matter which of them adds a value.
// The loops over lanes have a fixed length and no branch, so they become vector instructions.

inline constexpr std::size_t kLanes = kReductionLanes;

using LaneValues = std::array<double, kLanes>;
using LaneCounts = std::array<std::int64_t, kLanes>;

/// Merges lanes as a binary tree: the second half into the first, until one is left.
template <class Merge>
void mergeLanes(Merge&& merge) {
  for (std::size_t half = kLanes / 2; half > 0; half /= 2) {
    for (std::size_t lane = 0; lane < half; ++lane) {
      merge(lane, lane + half);
    }
  }
}

/// Sums with their rounding errors.
template <MissingRule rule>
class SumLanes {
 public:
  using Value = CompensatedSum;

  void add(std::size_t lane, double value) {
    addTo(sums_[lane], errors_[lane], counts_[lane], value);
  }

  void addGroups(const double* values, std::size_t groups) {
    LaneValues sums = sums_;  // local copies, which stay in registers
    LaneValues errors = errors_;
    LaneCounts counts = counts_;
    for (std::size_t group = 0; group < groups; ++group, values += kLanes) {
      for (std::size_t lane = 0; lane < kLanes; ++lane) {
        addTo(sums[lane], errors[lane], counts[lane], values[lane]);
      }
    }
    sums_ = sums;
    errors_ = errors;
    counts_ = counts;
  }

  CompensatedSum close() {
    std::array<CompensatedSum, kLanes> lanes;
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      lanes[lane] = {sums_[lane], errors_[lane], counts_[lane]};
    }
    mergeLanes([&](std::size_t to, std::size_t from) { lanes[to].merge(lanes[from]); });
    *this = SumLanes();
    return lanes[0];
  }

 private:
  static void addTo(double& sum, double& error, std::int64_t& count, double value) {
    const bool counts = rule == MissingRule::Propagate || value == value;
    addExactly(sum, error, counts ? value : 0.0);
    count += counts ? 1 : 0;
  }

  LaneValues sums_{};
  LaneValues errors_{};
  LaneCounts counts_{};
};

/// Sums and sums of squares of values, shifted by the first value of the block.
template <MissingRule rule>
class MomentLanes {
 public:
  using Value = Moments;

  void add(std::size_t lane, double value) {
    if (!hasShift_) {
      takeShift(&value, 1);
    }
    addTo(sums_[lane], squares_[lane], counts_[lane], value);
  }

  void addGroups(const double* values, std::size_t groups) {
    if (!hasShift_) {
      takeShift(values, groups * kLanes);
    }
    LaneValues sums = sums_;
    LaneValues squares = squares_;
    LaneCounts counts = counts_;
    for (std::size_t group = 0; group < groups; ++group, values += kLanes) {
      for (std::size_t lane = 0; lane < kLanes; ++lane) {
        addTo(sums[lane], squares[lane], counts[lane], values[lane]);
      }
    }
    sums_ = sums;
    squares_ = squares;
    counts_ = counts;
  }

  Moments close() {
    mergeLanes([&](std::size_t to, std::size_t from) {
      sums_[to] += sums_[from];
      squares_[to] += squares_[from];
      counts_[to] += counts_[from];
    });
    Moments block;
    if (counts_[0] > 0) {
      const double mean = sums_[0] / static_cast<double>(counts_[0]);
      const double squares = squares_[0] - sums_[0] * mean;
      block = {shift_ + mean, squares < 0 ? 0 : squares, counts_[0]};
    }
    *this = MomentLanes();
    return block;
  }

 private:
  static bool takesPart(double value) { return rule == MissingRule::Propagate || value == value; }

  void takeShift(const double* values, std::size_t count) {
    const double* found = std::find_if(values, values + count, takesPart);
    if (found == values + count) {
      return;
    }
    shift_ = *found;
    hasShift_ = true;
  }

  void addTo(double& sum, double& square, std::int64_t& count, double value) const {
    const bool counts = takesPart(value);
    const double shifted = counts ? value - shift_ : 0.0;
    sum += shifted;
    square += shifted * shifted;
    count += counts ? 1 : 0;
  }

  bool hasShift_ = false;
  double shift_ = 0;
  LaneValues sums_{};
  LaneValues squares_{};
  LaneCounts counts_{};
};

}  // namespace kv::runtime
