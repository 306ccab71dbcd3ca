#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "LoadingSession.h"
#include "RawFile.h"
#include "support/Worlds.h"

namespace kv::test {
namespace {

using host::format::Section;

constexpr std::size_t kFileBytes = 4'000'000;
constexpr double kMostBytesAByte = 16;
/// What the process asks for once, whatever the file: pages of its pools,
/// and properties that a class has got since.
constexpr double kAllowance = 4'000'000;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsMeasurable = false;
#else
constexpr bool kIsMeasurable = true;
#endif

/// A number of /proc/self/status, in bytes.
std::size_t statusBytes(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != key + ":") {
  }
  std::size_t kilobytes = 0;
  status >> kilobytes;
  return kilobytes * 1024;
}

/// By how much the resident memory of the process grows at most while `work` runs.
std::size_t peakGrowth(const std::function<void()>& work) {
  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts again from here
  const std::size_t before = statusBytes("VmRSS");
  work();
  const std::size_t peak = statusBytes("VmHWM");
  return peak - std::min(peak, before);
}

/// What `measure` gives in a child process, whose pools hold no memory of an earlier load.
std::size_t inChild(const std::function<std::size_t()>& measure) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const std::size_t result = measure();
    ::_exit(::write(ends[1], &result, sizeof(result)) == sizeof(result) ? 0 : 1);
  }
  std::size_t result = 0;
  ::close(ends[1]);
  EXPECT_EQ(::read(ends[0], &result, sizeof(result)), static_cast<ssize_t>(sizeof(result)));
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return result;
}

/// A file as full as can be of something that costs few bytes in it.
struct CheapThing {
  const char* what;
  std::function<void(RawFile&, std::size_t bytes)> fill;
};

/// An object array of as many objects without properties as fit.
void fillWithObjects(RawFile& file, std::string_view className, std::size_t bytes) {
  const auto shape = file.shape(className);
  std::vector<Reference> objects(bytes / 24);
  std::ranges::generate(objects, [&] { return file.object(shape); });
  file.root(file.cell(objects));
}

const CheapThing kCheapThings[] = {
    {"names",
     [](RawFile& f, std::size_t bytes) {
       for (std::size_t i = 0; i < bytes / 4; ++i) f.name("");
     }},
    {"shapes",
     [](RawFile& f, std::size_t bytes) {
       f.name("user.Thing");
       for (std::size_t i = 0; i < bytes / 8; ++i) f.section(Section::Shapes) += packed({0u, 0u});
     }},
    {"nulls",
     [](RawFile& f, std::size_t bytes) { f.root(f.cell(std::vector<Reference>(bytes / 8))); }},
    {"references to one number",
     [](RawFile& f, std::size_t bytes) {
       const Reference number = f.number(1);
       f.root(f.cell(std::vector<Reference>(bytes / 8, number)));
     }},
    {"references to one object",
     [](RawFile& f, std::size_t bytes) {
       const Reference thing = f.object(f.shape("user.Thing"));
       f.root(f.cell(std::vector<Reference>(bytes / 8, thing)));
     }},
    {"numbers",
     [](RawFile& f, std::size_t bytes) {
       std::vector<Reference> numbers(bytes / 24);
       std::ranges::generate(numbers, [&] { return f.number(1); });
       f.root(f.cell(numbers));
     }},
    {"empty cells",
     [](RawFile& f, std::size_t bytes) {
       std::vector<Reference> cells(bytes / 40);
       std::ranges::generate(cells, [&] { return f.cell({}); });
       f.root(f.cell(cells));
     }},
    {"structures",
     [](RawFile& f, std::size_t bytes) {
       std::vector<Reference> records(bytes / 49);
       std::ranges::generate(records, [&] { return f.record({}); });
       f.root(f.cell(records));
     }},
    {"missing texts",
     [](RawFile& f, std::size_t bytes) {
       f.root(f.full(kxSTRING_CLASS, {bytes / 4, 1}, std::string(bytes, '\0')));
     }},
    {"short texts",
     [](RawFile& f, std::size_t bytes) {
       std::string lengths;
       for (std::size_t i = 0; i < bytes / 5; ++i) lengths += packed(2u);
       f.root(f.full(kxSTRING_CLASS, {bytes / 5, 1}, lengths + std::string(bytes / 5, 'x'),
                     ValueForm::Narrow));
     }},
    {"functions",
     [](RawFile& f, std::size_t bytes) {
       std::vector<Reference> functions(bytes / 33);
       std::uint32_t next = 0;
       std::ranges::generate(functions, [&] {
         f.name("f" + std::to_string(next));
         return f.value(
             {kxFUNCTION_CLASS, static_cast<std::uint8_t>(ValueForm::Inline), 0, 0, next++});
       });
       f.root(f.cell(functions));
     }},
    {"things", [](RawFile& f, std::size_t bytes) { fillWithObjects(f, "user.Thing", bytes); }},
    {"operations",
     [](RawFile& f, std::size_t bytes) { fillWithObjects(f, "TestOperation", bytes); }},
    {"graphs",
     [](RawFile& f, std::size_t bytes) {
       fillWithObjects(f, "kalvex.bigdata.internal.lazyeval.LazyTaskGraph", bytes);
     }},
    {"whole operations",
     [](RawFile& f, std::size_t bytes) {
       const auto shape = f.shape(
           "TestOperation", {"NumInputs", "NumOutputs", "SupportsPreview", "DependsOnOnlyHead",
                             "SupportsDirectEvaluation", "Options", "Stack", "CacheEntryKey"});
       const Reference one = f.number(1);
       std::vector<Reference> objects(bytes / 56);
       std::ranges::generate(objects, [&] {
         return f.object(shape, {one, one, {}, {}, {}, {}, {}, {}});
       });
       f.root(f.cell(objects));
     }},
    {"promises",
     [](RawFile& f, std::size_t bytes) {
       fillWithObjects(f, "kalvex.bigdata.internal.lazyeval.ClosurePromise", bytes);
     }},
    {"arrays of another release",
     [](RawFile& f, std::size_t bytes) {
       const auto shape = f.shape("kalvex.bigdata.internal.lazyeval.LazyPartitionedArray");
       std::vector<Reference> arrays(bytes / 68);
       std::ranges::generate(arrays,
                             [&] { return f.object(shape, {f.record({})}, ObjectForm::Record); });
       f.root(f.cell(arrays));
     }},
};

TEST(LoadedMemory, IsAtMostSixteenTimesTheFile) {
  if (!kIsMeasurable || isStressed()) {
    GTEST_SKIP() << "sanitizers and stress keep memory of their own";
  }
  for (const CheapThing& thing : kCheapThings) {
    RawFile file;
    thing.fill(file, kFileBytes);
    const std::string bytes = file.bytes();
    const std::size_t growth = inChild([&] {
      LoadingSession session;
      return peakGrowth([&] { session.outcomeOf(bytes); });
    });
    const auto fileBytes = static_cast<double>(bytes.size());
    std::printf("memory: %zu bytes of %s: %.1f times the file\n", bytes.size(), thing.what,
                static_cast<double>(growth) / fileBytes);
    EXPECT_LE(static_cast<double>(growth), kMostBytesAByte * fileBytes + kAllowance) << thing.what;
  }
}

}  // namespace
}  // namespace kv::test
