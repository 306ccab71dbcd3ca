#include <gmock/gmock.h>

#include <cstdio>
#include <functional>
#include <string>

#include "LoadingSession.h"
#include "RawFile.h"
#include "RawGraph.h"

namespace kv::test {
namespace {

using host::format::Section;

constexpr std::uint32_t kHuge32 = 0xffffffff;
constexpr std::uint64_t kHuge64 = ~std::uint64_t{0};
const std::string kLazy = "kalvex.bigdata.internal.lazyeval.";

struct HostileFile {
  const char* what;
  std::function<void(RawFile&)> build;
  const char* refusal;  ///< how the error begins, behind "KALVEX:load:"
};

std::uint8_t formCode(ValueForm form) { return static_cast<std::uint8_t>(form); }

ValueEntry inlineEntry(int classCode, std::uint64_t payload, std::uint32_t flags = 0) {
  return {static_cast<std::uint8_t>(classCode), formCode(ValueForm::Inline), 0, flags, payload};
}

/// A graph with one thing wrong in it.
std::function<void(RawFile&)> graph(const std::function<void(RawGraph&)>& change) {
  return [change](RawFile& file) {
    RawGraph graph;
    change(graph);
    graph.addTo(file);
  };
}

/// A lazy array with a record.
Reference arrayOf(RawFile& file, Reference record) {
  return file.object(file.shape(kLazy + "LazyPartitionedArray"), {record}, ObjectForm::Record);
}

const HostileFile kTables[] = {
    {"no root", [](RawFile& f) { f.section(Section::Root) = "123"; }, "Corrupt | ROOT"},
    {"two roots", [](RawFile& f) { f.root({}), f.root({}); }, "Corrupt | ROOT"},
    {"a root beyond the values", [](RawFile& f) { f.root(Reference::value(0)); }, "Corrupt | ROOT"},
    {"a root beyond the objects", [](RawFile& f) { f.root(Reference::object(0)); },
     "Corrupt | ROOT"},
    {"a name longer than its section",
     [](RawFile& f) { f.section(Section::Names) = packed(kHuge32) + "name"; }, "Corrupt | NAME"},
    {"a length that ends early", [](RawFile& f) { f.section(Section::Names) = "\1"; },
     "Corrupt | NAME"},
    {"a name that isn't UTF-8", [](RawFile& f) { f.name("\xff\xfe"); }, "Corrupt | NAME"},
    {"a name with half a surrogate pair", [](RawFile& f) { f.name("\xed\xa0\x80"); },
     "Corrupt | NAME"},
    {"a shape with more properties than bytes",
     [](RawFile& f) {
       f.section(Section::Shapes) = packed({f.name("user.Thing"), kHuge32});
     },
     "Corrupt | SHAP"},
    {"a shape without a name",
     [](RawFile& f) {
       f.section(Section::Shapes) = packed({7u, 0u});
     },
     "Corrupt | SHAP"},
    {"a property twice",
     [](RawFile& f) {
       const auto next = (f.name("user.Thing"), f.name("Next"));
       f.section(Section::Shapes) = packed({0u, 2u, next, next});
     },
     "Corrupt | SHAP"},
    {"half an object", [](RawFile& f) { f.section(Section::Objects) = "12345678"; },
     "Corrupt | OBJS"},
    {"half a value", [](RawFile& f) { f.section(Section::Values) = "12345678"; }, "Corrupt | VALS"},
    {"half a reference", [](RawFile& f) { f.section(Section::References) = "12"; },
     "Corrupt | REFS"},
    {"an object without a shape", [](RawFile& f) { f.root(f.object(3)); }, "Corrupt | OBJS"},
    {"an object in an unknown form",
     [](RawFile& f) { f.root(f.objectAt(f.shape("user.Thing"), 3, 0)); }, "Corrupt | OBJS"},
    {"references beyond the table",
     [](RawFile& f) { f.root(f.objectAt(f.shape("user.Thing", {"Next"}), 0, kHuge64)); },
     "Corrupt | OBJS"},
    {"a property beyond the objects",
     [](RawFile& f) { f.root(f.object(f.shape("user.Thing", {"Next"}), {Reference::object(1)})); },
     "Corrupt | OBJS"},
    {"two objects with the same references",
     [](RawFile& f) {
       const auto shape = f.shape("user.Thing", {"Next"});
       f.object(shape, {Reference()});
       f.root(f.objectAt(shape, 0, 0));
     },
     "Corrupt | OBJS"},
};

const HostileFile kValues[] = {
    {"a value of no class", [](RawFile& f) { f.root(f.value(inlineEntry(255, 0))); },
     "Corrupt | VALS"},
    {"a value in no form",
     [](RawFile& f) {
       f.root(f.value({kxDOUBLE_CLASS, 3, 0, 0, 0}));
     },
     "Corrupt | VALS"},
    {"a text in an entry", [](RawFile& f) { f.root(f.value(inlineEntry(kxSTRING_CLASS, 0))); },
     "Corrupt | VALS"},
    {"a number of narrow characters",
     [](RawFile& f) {
       f.root(f.full(kxDOUBLE_CLASS, {1, 2}, "ab", ValueForm::Narrow));
     },
     "Corrupt | VALS"},
    {"a flag without a meaning",
     [](RawFile& f) { f.root(f.value(inlineEntry(kxDOUBLE_CLASS, 0, 1))); }, "Corrupt | VALS"},
    {"a function without a name",
     [](RawFile& f) { f.root(f.value(inlineEntry(kxFUNCTION_CLASS, kHuge64))); }, "Corrupt | VALS"},
    {"a function with contents",
     [](RawFile& f) {
       f.root(f.full(kxFUNCTION_CLASS, {1, 1}, ""));
     },
     "Corrupt | VALS"},
    {"a logical of 2", [](RawFile& f) { f.root(f.value(inlineEntry(kxLOGICAL_CLASS, 2))); },
     "Corrupt | VALS"},
    {"logicals of 7",
     [](RawFile& f) {
       f.root(f.full(kxLOGICAL_CLASS, {1, 2}, "\1\7"));
     },
     "Corrupt | VALS"},
    {"data beyond the file",
     [](RawFile& f) {
       f.root(f.value({kxDOUBLE_CLASS, formCode(ValueForm::Full), 2, 0, kHuge64}));
     },
     "Corrupt | VALS"},
    {"one dimension", [](RawFile& f) { f.root(f.full(kxDOUBLE_CLASS, {1}, "12345678")); },
     "Corrupt | VALS"},
    {"a thousand dimensions",
     [](RawFile& f) {
       f.root(f.full(kxDOUBLE_CLASS, std::vector<std::uint64_t>(1000, 1), "12345678"));
     },
     "Corrupt | VALS"},
    {"elements whose count overflows",
     [](RawFile& f) {
       f.root(f.full(kxUINT8_CLASS, {1ULL << 32, 1ULL << 32}, ""));
     },
     "Corrupt | VALS"},
    {"elements whose bytes overflow",
     [](RawFile& f) {
       f.root(f.full(kxDOUBLE_CLASS, {1ULL << 61, 1}, ""));
     },
     "Corrupt | VALS"},
    {"a product that overflows to a small one",
     [](RawFile& f) {
       f.root(f.full(kxUINT8_CLASS, {1ULL << 62, 1ULL << 62, 1ULL << 62, 16}, ""));
     },
     "Corrupt | VALS"},
    {"an overflow behind a zero",
     [](RawFile& f) {
       f.root(f.full(kxDOUBLE_CLASS, {0, 1ULL << 63, 1ULL << 63}, ""));
     },
     "Corrupt | VALS"},
    {"no texts in too many columns",
     [](RawFile& f) {
       f.root(f.full(kxSTRING_CLASS, {0, 1ULL << 58}, ""));
     },
     "Corrupt | VALS"},
    {"a cell with more elements than bytes",
     [](RawFile& f) {
       f.root(f.full(kxCELL_CLASS, {1, 1'000'000}, "1234"));
     },
     "Corrupt | VALS"},
    {"objects in three dimensions",
     [](RawFile& f) {
       f.root(
           f.full(kxOBJECT_CLASS, {1, 1, 5}, packed(f.name("user.Thing")) + std::string(40, '\0')));
     },
     "Corrupt | VALS"},
    {"a text longer than the data",
     [](RawFile& f) {
       f.root(f.full(kxSTRING_CLASS, {1, 3}, packed({kHuge32, kHuge32, kHuge32}) + "text"));
     },
     "Corrupt | VALS"},
    {"a structure with more fields than bytes",
     [](RawFile& f) {
       f.root(f.full(kxSTRUCT_CLASS, {1, 1}, packed(kHuge32)));
     },
     "Corrupt | VALS"},
    {"a field without a name",
     [](RawFile& f) {
       f.root(f.full(kxSTRUCT_CLASS, {1, 1}, packed({1u, 9u, 0u, 0u})));
     },
     "Corrupt | VALS"},
    {"a field twice",
     [](RawFile& f) {
       const auto field = f.name("field");
       f.root(f.full(kxSTRUCT_CLASS, {1, 1}, packed({2u, field, field}) + std::string(16, '\0')));
     },
     "Corrupt | VALS"},
    {"a structure of more elements than any memory",
     [](RawFile& f) {
       f.root(f.full(kxSTRUCT_CLASS, {1ULL << 60, 1},
                     packed({2u, f.name("a"), f.name("b")}) + std::string(64, '\0')));
     },
     "Corrupt | VALS"},
    {"a cell in itself", [](RawFile& f) { f.root(f.cell({Reference::value(0)})); },
     "Corrupt | VALS"},
    {"a cell before its element",
     [](RawFile& f) {
       f.root(f.cell({Reference::value(1)}));
       f.number(1);
     },
     "Corrupt | VALS"},
    {"a cell of an object that isn't there",
     [](RawFile& f) { f.root(f.cell({Reference::object(0)})); }, "Corrupt | VALS"},
    {"cells in cells, 100,000 deep",
     [](RawFile& f) {
       Reference inner = f.number(1);
       for (int depth = 0; depth < 100'000; ++depth) inner = f.cell({inner});
       f.root(inner);
     },
     "Corrupt | VALS"},
    {"a cell of two cells of two cells, 30 deep",
     [](RawFile& f) {
       Reference inner = f.number(1);
       for (int depth = 0; depth < 30; ++depth) inner = f.cell({inner, inner});
       f.root(inner);
     },
     "Corrupt | VALS"},
    {"a structure without fields, of elements without bytes",
     [](RawFile& f) {
       f.root(f.full(kxSTRUCT_CLASS, {1ULL << 50, 1}, packed(0u)));
     },
     "Corrupt | VALS"},
    {"rows of no characters",
     [](RawFile& f) {
       f.root(f.full(kxCHAR_CLASS, {1ULL << 50, 0}, ""));
     },
     "Corrupt | VALS"},
    {"two values with the same data",
     [](RawFile& f) {
       f.full(kxDOUBLE_CLASS, {1, 4}, std::string(32, '\0'));
       f.root(f.value({kxDOUBLE_CLASS, formCode(ValueForm::Full), 2, 0, 0}));
     },
     "Corrupt | VALS"},
};

const HostileFile kObjects[] = {
    {"an unknown class", [](RawFile& f) { f.root(f.object(f.shape("no.Such"))); },
     "UnknownClass | no.Such"},
    {"an array of an unknown class", [](RawFile& f) { f.root(f.objects("no.Such", {})); },
     "UnknownClass | no.Such"},
    {"a package as a class", [](RawFile& f) { f.root(f.object(f.shape("kalvex.bigdata"))); },
     "UnknownClass | kalvex.bigdata"},
    {"a function as a class", [](RawFile& f) { f.root(f.object(f.shape("user.function"))); },
     "UnknownClass | user.function"},
    {"a class without a name", [](RawFile& f) { f.root(f.object(f.shape(""))); },
     "UnknownClass | "},
    {"an abstract class", [](RawFile& f) { f.root(f.object(f.shape(kLazy + "Operation"))); },
     "Corrupt | OBJS"},
    {"an unknown property",
     [](RawFile& f) { f.root(f.object(f.shape("user.Thing", {"Other"}), {Reference()})); },
     "Corrupt | OBJS"},
    {"a property that is computed",
     [](RawFile& f) { f.root(f.object(f.shape("user.Thing", {"Seen"}), {Reference()})); },
     "Corrupt | OBJS"},
    {"a method as a property",
     [](RawFile& f) { f.root(f.object(f.shape("user.Thing", {"run"}), {Reference()})); },
     "Corrupt | OBJS"},
    {"something saved besides the properties",
     [](RawFile& f) {
       f.root(f.object(f.shape("user.Thing"), {f.number(1)}, ObjectForm::PropertiesAndSaved));
     },
     "Corrupt | OBJS"},
    {"a value among objects", [](RawFile& f) { f.root(f.objects("user.Thing", {f.number(1)})); },
     "Corrupt | VALS"},
    {"an object among those of another class",
     [](RawFile& f) { f.root(f.objects("user.SpecialThing", {f.object(f.shape("user.Thing"))})); },
     "Corrupt | OBJS"},
    {"no record", [](RawFile& f) { f.root(arrayOf(f, {})); }, "Corrupt | OBJS"},
    {"a number as a record", [](RawFile& f) { f.root(arrayOf(f, f.number(1))); }, "Corrupt | OBJS"},
    {"a record that holds its object",
     [](RawFile& f) {
       f.root(arrayOf(f, f.record({{"ValueFuture", Reference::object(0)}})));
     },
     "Corrupt | VALS"},
    {"records that hold each other's objects",
     [](RawFile& f) {
       arrayOf(f, f.record({{"ValueFuture", Reference::object(1)}}));
       f.root(arrayOf(f, f.record({{"ValueFuture", Reference::object(0)}})));
     },
     "Corrupt | VALS"},
    {"two objects with one record",
     [](RawFile& f) {
       const Reference record = f.record({{"Version", f.chars("7.1")}});
       f.root(f.cell({arrayOf(f, record), arrayOf(f, record)}));
     },
     "Corrupt | OBJS"},
    {"a record for a class that has none",
     [](RawFile& f) {
       f.root(f.object(f.shape("user.Thing"), {f.record({})}, ObjectForm::Record));
     },
     "Corrupt | OBJS"},
    {"a record of no elements",
     [](RawFile& f) {
       f.root(arrayOf(f, f.full(kxSTRUCT_CLASS, {0, 1}, packed({1u, f.name("Version")}))));
     },
     "Corrupt | OBJS"},
    {"a release that is a number",
     [](RawFile& f) {
       f.root(arrayOf(f, f.record({{"Version", f.number(7.2)}})));
     },
     "Corrupt | OBJS"},
    {"a record whose future is a thing",
     [](RawFile& f) {
       const Reference thing = f.object(f.shape("user.Thing"));
       f.root(arrayOf(f, f.record({{"Version", f.chars("7.2")},
                                   {"ValueFuture", thing},
                                   {"PartitionMetadata", thing}})));
     },
     "Corrupt | OBJS"},
};

/// The setters of the core see the class of what they are given; whether a graph as a whole can be
/// evaluated is the business of a library's validator.
const HostileFile kGraphs[] = {
    {"output -1 of a closure", graph([](RawGraph& g) { g.outputIndex = -1; }), "Corrupt | OBJS"},
    {"a thing as a promise", graph([](RawGraph& g) { g.futurePromise = g.kThing; }),
     "Corrupt | OBJS"},
    {"a thing as a closure", graph([](RawGraph& g) { g.promiseClosure = g.kThing; }),
     "Corrupt | OBJS"},
    {"a thing as a future", graph([](RawGraph& g) { g.promiseFuture = g.kThing; }),
     "Corrupt | OBJS"},
    {"a thing as an operation", graph([](RawGraph& g) { g.operation = g.kThing; }),
     "Corrupt | OBJS"},
    {"a thing as an input", graph([](RawGraph& g) { g.input = g.kThing; }), "Corrupt | OBJS"},
    {"a closure as an output", graph([](RawGraph& g) { g.output = g.kClosure; }), "Corrupt | OBJS"},
};

/// Loads the files of a table in one session. Each must be refused as its row says, with nothing
/// left behind and nothing of the user run.
void expectRefused(const char* kind, std::span<const HostileFile> files) {
  std::size_t ran = 0;
  {
    LoadingSession session;
    const std::string good = session.save(session.chain(3));
    const std::size_t before = session.liveObjects();
    session.takeUserCalls();
    for (const HostileFile& file : files) {
      SCOPED_TRACE(file.what);
      RawFile raw;
      file.build(raw);
      EXPECT_THAT(session.outcomeOf(raw.bytes()),
                  ::testing::StartsWith(std::string("KALVEX:load:") + file.refusal));
      const std::size_t calls = session.takeUserCalls();
      EXPECT_EQ(calls, 0u);
      ran += calls;
      EXPECT_EQ(session.liveObjects(), before);
      EXPECT_TRUE(session.isSound());
    }
    EXPECT_EQ(session.outcomeOf(good), "loaded");
  }
  EXPECT_EQ(host::ledger().objects, 0u);
  EXPECT_EQ(host::ledger().arrays, 0u);
  std::printf("hostile: %zu files with hostile %s, user code run by them: %zu\n", files.size(),
              kind, ran);
}

TEST(HostileFiles, WithTablesThatDontFit) { expectRefused("tables", kTables); }
TEST(HostileFiles, WithValuesThatCantBe) { expectRefused("values", kValues); }
TEST(HostileFiles, WithObjectsThatCantBeMade) { expectRefused("objects", kObjects); }
TEST(HostileFiles, WithGraphsOfWrongObjects) { expectRefused("graphs", kGraphs); }

TEST(HostileFiles, AreHostileInOneThingOnly) {
  LoadingSession session;
  RawFile file;
  RawGraph().addTo(file);
  EXPECT_EQ(session.outcomeOf(file.bytes()), "loaded");
}

}  // namespace
}  // namespace kv::test
