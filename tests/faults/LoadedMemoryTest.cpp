#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "faults/FailingMemory.h"
#include "kv/host/session.h"
#include "kv/runtime/runtime.h"
#include "persistence/RawFile.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

using host::format::Section;

constexpr std::size_t kFileBytes = 2'000'000;
/// For memory that the process requests once: pages of objects, and copies within the free limit.
constexpr double kAllowance = 16'000'000;

/// A file filled with as many entries as possible of a kind that takes few bytes in it.
struct Filling {
  const char* what;
  std::function<void(RawFile&, std::size_t bytes)> fill;
};

const std::string kPackage = "kalvex.bigdata.internal.";

/// A cell of as many values as fit, each with `each` bytes plus its reference in the cell.
void fillWith(RawFile& file, std::size_t bytes, std::size_t each,
              const std::function<Reference()>& make) {
  std::vector<Reference> all(bytes / (each + 8));
  std::ranges::generate(all, make);
  file.root(file.cell(all));
}

/// Objects without properties.
Filling bare(const char* what, const std::string& className) {
  return {what, [className](RawFile& f, std::size_t bytes) {
            const auto shape = f.shape(className);
            fillWith(f, bytes, 16, [&] { return f.object(shape); });
          }};
}

/// Objects of a class that share one value in `property`, which takes half of the file.
Filling sharing(const char* what, const std::string& className, std::string_view property,
                const std::function<Reference(RawFile&, std::size_t)>& makeShared) {
  return {what, [=](RawFile& f, std::size_t bytes) {
            const auto shape = f.shape(className, {property});
            const Reference shared = makeShared(f, bytes / 2);
            fillWith(f, bytes / 2, 20, [&] { return f.object(shape, {shared}); });
          }};
}

Reference longText(RawFile& f, std::size_t bytes) { return f.text(std::string(bytes, 'x')); }
Reference shortTexts(RawFile& f, std::size_t bytes) { return f.texts(bytes / 5, "x"); }
Reference codes(RawFile& f, std::size_t bytes) {
  return f.full(kxDOUBLE_CLASS, {bytes / 8, 1}, std::string(bytes, '\0'));
}
/// An array that refers many times to one object of a class.
std::function<Reference(RawFile&, std::size_t)> links(const std::string& className) {
  return [className](RawFile& f, std::size_t bytes) {
    const Reference one = f.object(f.shape(className));
    return f.objects(className, std::vector<Reference>(bytes / 8, one));
  };
}

/// Datastores that share their paths or the names of their columns.
Filling datastores(const char* what, bool sharesPaths) {
  return {what, [=](RawFile& f, std::size_t bytes) {
            const auto shape = f.shape("kalvex.io.CsvDatastore");
            const Reference many = shortTexts(f, bytes / 2);
            const Reference one = f.text("x");
            const Reference number =
                f.full(kxINT64_CLASS, {sharesPaths ? bytes / 10 : 1, 1}, std::string(bytes, '\0'));
            const Reference paths = sharesPaths ? many : one;
            const Reference columns = sharesPaths ? f.texts(0, "") : many;
            fillWith(f, bytes / 2, 150, [&] {
              return f.object(shape,
                              {f.record({{"Name", one},
                                         {"Paths", paths},
                                         {"AbsolutePaths", paths},
                                         {"Bytes", number},
                                         {"Modified", number},
                                         {"ColumnNames", columns},
                                         {"ColumnTypes", columns}})},
                              ObjectForm::PropertiesAndSaved);
            });
          }};
}

const Filling kFillings[] = {
    {"names",
     [](RawFile& f, std::size_t bytes) {
       for (std::size_t i = 0; i < bytes / 4; ++i) {
         f.name("");
       }
     }},
    {"shapes",
     [](RawFile& f, std::size_t bytes) {
       f.name("table");
       for (std::size_t i = 0; i < bytes / 8; ++i) {
         f.section(Section::Shapes) += packed({0u, 0u});
       }
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
       const Reference table = f.object(f.shape("table"));
       f.root(f.cell(std::vector<Reference>(bytes / 8, table)));
     }},
    {"numbers",
     [](RawFile& f, std::size_t bytes) { fillWith(f, bytes, 16, [&] { return f.number(1); }); }},
    {"empty cells",
     [](RawFile& f, std::size_t bytes) { fillWith(f, bytes, 32, [&] { return f.cell({}); }); }},
    {"structures",
     [](RawFile& f, std::size_t bytes) { fillWith(f, bytes, 41, [&] { return f.record({}); }); }},
    {"missing texts",
     [](RawFile& f, std::size_t bytes) {
       f.root(f.full(kxSTRING_CLASS, {bytes / 4, 1}, std::string(bytes, '\0')));
     }},
    {"short texts", [](RawFile& f, std::size_t bytes) { f.root(shortTexts(f, bytes)); }},
    {"functions",
     [](RawFile& f, std::size_t bytes) {
       std::uint32_t next = 0;
       fillWith(f, bytes, 25, [&] {
         f.name("f" + std::to_string(next));
         return f.value(
             {kxFUNCTION_CLASS, static_cast<std::uint8_t>(ValueForm::Inline), 0, 0, next++});
       });
     }},
    bare("things", "kalvex.bigdata.internal.lazyeval.CacheEntryKey"),
    bare("operations", kPackage + "lazyeval.TernaryOperation"),
    bare("graphs", kPackage + "lazyeval.LazyTaskGraph"),
    bare("promises", kPackage + "lazyeval.ClosurePromise"),
    {"whole operations",
     [](RawFile& f, std::size_t bytes) {
       const auto shape =
           f.shape(kPackage + "lazyeval.TernaryOperation",
                   {"NumInputs", "NumOutputs", "SupportsPreview", "DependsOnOnlyHead",
                    "SupportsDirectEvaluation", "Options", "Stack"});
       const Reference three = f.number(3), one = f.number(1);
       fillWith(f, bytes, 44, [&] { return f.object(shape, {three, one, {}, {}, {}, {}, {}}); });
     }},
    {"arrays of another release",
     [](RawFile& f, std::size_t bytes) {
       const auto shape = f.shape(kPackage + "lazyeval.LazyPartitionedArray");
       fillWith(f, bytes, 60, [&] { return f.object(shape, {f.record({})}, ObjectForm::Record); });
     }},
    {"arrays of one long release",
     [](RawFile& f, std::size_t bytes) {
       const auto shape = f.shape(kPackage + "lazyeval.LazyPartitionedArray");
       const Reference version = f.chars(std::string(bytes / 2, '9'));
       fillWith(f, bytes / 2, 85, [&] {
         return f.object(shape, {f.record({{"Version", version}})}, ObjectForm::Record);
       });
     }},
    {"structures with one long field",
     [](RawFile& f, std::size_t bytes) {
       const std::uint32_t field = f.name(std::string(bytes / 2, 'x'));
       fillWith(f, bytes / 2, 48, [&] {
         return f.full(kxSTRUCT_CLASS, {1, 1}, packed({1u, field, 0u, 0u}));
       });
     }},
    sharing("closures with one list of inputs", kPackage + "lazyeval.Closure", "InputFutures",
            links(kPackage + "lazyeval.ClosureFuture")),
    sharing("closures with one list of outputs", kPackage + "lazyeval.Closure", "OutputPromises",
            links(kPackage + "lazyeval.ClosurePromise")),
    sharing("closures with one id", kPackage + "lazyeval.Closure", "Id", longText),
    sharing("promises with one id", kPackage + "lazyeval.ClosurePromise", "Id", longText),
    sharing("builders with one list of inputs", kPackage + "executor.CompositeDataProcessorBuilder",
            "InputBuilders", links(kPackage + "executor.CompositeDataProcessorBuilder")),
    sharing("builders with one id", kPackage + "executor.CompositeDataProcessorBuilder", "InputId",
            longText),
    sharing("maps with the same keys", "containers.Map", "Keys", shortTexts),
    sharing("tables with the same names", "table", "VariableNames", shortTexts),
    sharing("categoricals with the same categories", "categorical", "Categories", shortTexts),
    sharing("categoricals with the same codes", "categorical", "Codes", codes),
    sharing("columns with the same names", kPackage + "lazyeval.SubsrefTabularVarOperation",
            "Variables", shortTexts),
    sharing("joined strategies with the same parts",
            "kalvex.bigdata.internal.executor.ConcatenatedPartitionStrategy", "Strategies",
            [](RawFile& f, std::size_t bytes) {
              const Reference part =
                  f.object(f.shape("kalvex.bigdata.internal.executor.BroadcastPartitionStrategy"));
              return f.cell(std::vector<Reference>(bytes / 8, part));
            }),
    datastores("datastores with the same paths", true),
    datastores("datastores with the same columns", false),
};

/// Loads a file, inspects the result, and drops it.
void loadAndDrop(host::Session& session, const std::string& bytes) {
  try {
    session.loadBytes(bytes, false);
  } catch (const Torvane::KException::KExceptionEnvelope&) {
    // The memory for a refusal counts, too.
  }
  session.collect();
  session.clearWarnings();
}

TEST(LoadedMemory, IsAtMostThirtyTwoTimesTheFile) {
  if (isStressed()) {
    GTEST_SKIP() << "each creation collects, and verifying the heap takes memory of its own";
  }
  for (const Filling& filling : kFillings) {
    RawFile file;
    filling.fill(file, kFileBytes);
    const std::string bytes = file.bytes();
    host::Session session;
    runtime::load(session);
    const host::Session::Scope scope(session);
    const CountedMemory memory;
    loadAndDrop(session, bytes);
    const auto fileBytes = static_cast<double>(bytes.size());
    std::printf("memory: %zu bytes of %s: %.1f times the file at most, %.1f in all\n", bytes.size(),
                filling.what, static_cast<double>(memory.peak()) / fileBytes,
                static_cast<double>(memory.total()) / fileBytes);
    EXPECT_LE(static_cast<double>(memory.peak()), 32 * fileBytes + kAllowance) << filling.what;
    EXPECT_LE(static_cast<double>(memory.total()), 64 * fileBytes + kAllowance) << filling.what;
  }
}

}  // namespace
}  // namespace kv::test
