/// The flights query inside one process, against plain Arrow code on the same file.
#include <benchmark/benchmark.h>

#include "support/Flights.h"

namespace kv::bench {

namespace {

using Ask = FlightAnswers (*)(const std::string& path);

void flights(benchmark::State& state, Ask ask) {
  const std::string path = flightsPath();
  if (!isSameAnswer(askOurselves(path), askArrow(path))) {
    state.SkipWithError("the two sides give different answers");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(ask(path));
  }
}

BENCHMARK_CAPTURE(flights, ours, askOurselves)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(flights, arrow, askArrow)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace kv::bench

BENCHMARK_MAIN();
