#pragma once

namespace kv::runtime {

/// The quantile of the normal distribution of mean 0 and standard deviation 1: Wichura's AS 241,
/// PPND16 (Applied Statistics 37, 1988), accurate to about 1 part in 10^16.
///
/// Requires: 0 < p < 1. The same bits on every machine.
double normalQuantile(double p);

}  // namespace kv::runtime
