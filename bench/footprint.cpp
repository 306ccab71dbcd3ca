/// Memory of one recorded operation; measured once, in a separate process, since freed memory is
/// reused.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <fstream>

#include "support/CoreArrays.h"

namespace kv::bench {

namespace {

double residentBytes() {
  std::ifstream statm("/proc/self/statm");
  double pages = 0;
  double residentPages = 0;
  statm >> pages >> residentPages;
  return residentPages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void footprint(benchmark::State& state) {
  const CoreArrays arrays;
  const auto count = static_cast<double>(state.range(0));
  for (auto _ : state) {
    const double residentBefore = residentBytes();
    const host::Ledger before = host::ledger();
    const host::Value chain = arrays.chain(static_cast<std::size_t>(state.range(0)));
    const host::Ledger after = host::ledger();
    state.counters["bytes"] = (residentBytes() - residentBefore) / count;
    state.counters["objects"] = static_cast<double>(after.objects - before.objects) / count;
    state.counters["arrays"] = static_cast<double>(after.arrays - before.arrays) / count;
    state.counters["payloads"] = static_cast<double>(after.payloads - before.payloads) / count;
    state.counters["payload_bytes"] =
        static_cast<double>(after.payloadBytes - before.payloadBytes) / count;
  }
}

BENCHMARK(footprint)->Arg(1'000'000)->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace kv::bench

BENCHMARK_MAIN();
