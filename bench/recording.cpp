/// Recording x = x + 1 as a chain held at its end: by name, as front ends do, and by operator; also
/// recording on columns of narrow and wide tables.
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "kv/array.h"
#include "session/SessionState.h"
#include "support/CoreArrays.h"
#include "support/Flights.h"

namespace kv::bench {

namespace {

double operations(const benchmark::State& state) {
  return static_cast<double>(state.iterations() * state.range(0));
}

/// Times `record`, which returns the end of a chain of `count` operations. Freeing the chain isn't
/// timed.
template <class Record>
void recordChain(benchmark::State& state, Record&& record) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(record(static_cast<std::size_t>(state.range(0))));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void recordByName(benchmark::State& state) {
  CoreArrays arrays;
  const auto& counters = arrays.session.state().heap.counters();
  const auto before = counters;
  const auto start = std::chrono::steady_clock::now();
  recordChain(state, [&](std::size_t count) { return arrays.chain(count); });
  const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
  state.counters["collector_share"] =
      static_cast<double>(counters.collectorNanoseconds - before.collectorNanoseconds) /
      elapsed.count();
  state.counters["objects"] =
      static_cast<double>(counters.created - before.created) / operations(state);
}

void recordByOperator(benchmark::State& state) {
  Session session;
  const Array column = session.read(flightsPath()).column("dep_delay");
  recordChain(state, [&](std::size_t count) {
    Array array = column;
    for (std::size_t i = 0; i < count; ++i) {
      array = array + 1;
    }
    return array;
  });
}

/// A table of one row, in a file of its own.
class WideFile {
 public:
  explicit WideFile(std::int64_t columns)
      : path_(std::filesystem::temp_directory_path() / fmt::format("wide-{}.csv", getpid())) {
    std::ofstream out(path_);
    for (const std::string_view form : {"c{}", "{}"}) {
      for (std::int64_t i = 0; i < columns; ++i) {
        out << (i == 0 ? "" : ",") << fmt::format(fmt::runtime(form), i);
      }
      out << "\n";
    }
  }
  ~WideFile() { std::filesystem::remove(path_); }
  WideFile(const WideFile&) = delete;
  WideFile& operator=(const WideFile&) = delete;

  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

/// Five operations on two columns of a table, the same for any width of the table.
void recordOnColumns(benchmark::State& state) {
  const WideFile file(state.range(0));
  Session session;
  const Table table = session.read(file.path());
  const std::string first = table.columns().front(), last = table.columns().back();
  for (auto _ : state) {
    const Array x = table.column(first);
    const Array y = table.column(last);
    benchmark::DoNotOptimize(filter(x + y, x > y));
  }
  state.SetItemsProcessed(state.iterations() * 5);
}

/// The same number of operations in chains of a given length, each dropped when it is complete,
/// until all are freed. Chains are garbage with cycles, so the collector frees them.
void recordAndFree(benchmark::State& state) {
  constexpr std::int64_t kOperations = 100'000;
  CoreArrays arrays;
  for (auto _ : state) {
    for (std::int64_t done = 0; done < kOperations; done += state.range(0)) {
      benchmark::DoNotOptimize(arrays.chain(static_cast<std::size_t>(state.range(0))));
    }
    arrays.session.collect();
  }
  state.SetItemsProcessed(state.iterations() * kOperations);
}

BENCHMARK(recordAndFree)->Arg(100)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(recordOnColumns)->Arg(19)->Arg(100'000);
BENCHMARK(recordByName)->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(recordByOperator)->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace kv::bench

BENCHMARK_MAIN();
