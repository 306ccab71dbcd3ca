/// The collector on a heap without garbage: time per object visited.
#include <benchmark/benchmark.h>

#include "session/SessionState.h"
#include "support/CoreArrays.h"

namespace kv::bench {

namespace {

/// Objects of a chain in which every operation is live.
void collect(benchmark::State& state) {
  CoreArrays arrays;
  const auto& heap = arrays.session.state().heap;
  const auto wanted = static_cast<std::size_t>(state.range(0));
  std::vector<host::Value> chains;
  while (heap.liveObjects() < wanted) {
    constexpr std::size_t kOperations = 1000;
    chains.push_back(arrays.chain(kOperations));
  }
  const auto visitedBefore = heap.counters().visited;
  for (auto _ : state) {
    if (arrays.session.collect() != 0) {
      state.SkipWithError("the collector freed live objects");
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(heap.counters().visited - visitedBefore));
}

BENCHMARK(collect)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace kv::bench

BENCHMARK_MAIN();
