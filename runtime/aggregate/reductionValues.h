#pragma once

#include <cmath>
#include <cstdint>

namespace kv::runtime {

/// Adds `value` to `sum`, and what was rounded off to `error`: exact for finite numbers.
///
/// Source: Knuth, The Art of Computer Programming 2, 4.2.2, Theorem B.
inline void addExactly(double& sum, double& error, double value) {
  const double total = sum + value;
  const double added = total - sum;
  error += (sum - (total - added)) + (value - added);
  sum = total;
}

/// A sum of floating values with the error that was rounded off on the way.
struct CompensatedSum {
  double sum = 0;
  double error = 0;
  std::int64_t count = 0;

  void merge(const CompensatedSum& later) {
    addExactly(sum, error, later.sum);
    error += later.error;
    count += later.count;
  }

  /// The sum to all its digits. Once it isn't finite, its error means nothing.
  double value() const { return std::isfinite(sum) ? sum + error : sum; }
};

/// Mean and sum of squared deviations from it.
struct Moments {
  double mean = 0;
  double squares = 0;
  std::int64_t count = 0;

  /// Source: Chan, Golub, LeVeque (1979), formulae 1.5.
  void merge(const Moments& later) {
    if (later.count == 0) return;
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
