/// What a unit, and a chunk at each step, cost beside their rows: an array in memory whose
/// partitions have one row each, summed as it is and after a chain of steps.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <vector>

#include "kv/array.h"

namespace kv::bench {

namespace {

constexpr std::int64_t kUnits = 20'000;

/// Arguments: threads, steps before the sum.
void dispatch(benchmark::State& state) {
  const std::vector<double> ones(kUnits, 1.0);
  Session session;
  session.setThreads(static_cast<int>(state.range(0)));
  const Array rows = session.fromMemory(ones, {.rows = 1});
  for (auto _ : state) {
    state.PauseTiming();
    Array array = rows;
    for (std::int64_t step = 0; step < state.range(1); ++step) {
      array = array + 1;
    }
    const std::array total{sum(array)};
    state.ResumeTiming();
    benchmark::DoNotOptimize(session.gather(total));
  }
  state.SetItemsProcessed(state.iterations() * kUnits);
}

BENCHMARK(dispatch)->ArgsProduct({{1, 2}, {0, 20}})->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace kv::bench

BENCHMARK_MAIN();
