#pragma once

#include <cmath>
#include <cstdint>

namespace kv::runtime {

/// Adds `value` to `sum`, and the rounding error to `error`: exact for finite numbers.
///
/// Source: Knuth, The Art of Computer Programming 2, 4.2.2, Theorem B.
inline void addExactly(double& sum, double& error, double value) {
  const double total = sum + value;
  const double added = total - sum;
  error += (sum - (total - added)) + (value - added);
  sum = total;
}

/// A sum of floating values together with its accumulated rounding error.
struct CompensatedSum {
  double sum = 0;
  double error = 0;
  std::int64_t count = 0;

  void merge(const CompensatedSum& later) {
    addExactly(sum, error, later.sum);
    error += later.error;
    count += later.count;
  }

  /// The sum to full precision. If it isn't finite, the error is meaningless.
  double value() const { return std::isfinite(sum) ? sum + error : sum; }
};

/// Mean and sum of squared deviations from it.
struct Moments {
  double mean = 0;
  double squares = 0;
  std::int64_t count = 0;

  /// Source: Chan, Golub, LeVeque (1979), formulae 1.5.
  void merge(const Moments& later) {
    if (later.count == 0) {
      return;
    }
    if (count == 0) {
      *this = later;
      return;
    }
    const auto here = static_cast<double>(count);
    const auto there = static_cast<double>(later.count);
    const double share = there / (here + there);
    const double difference = later.mean - mean;
    mean += difference * share;
    squares += later.squares + difference * difference * here * share;
    count += later.count;
  }
};

}  // namespace kv::runtime
