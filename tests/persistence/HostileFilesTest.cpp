#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "LoadingSession.h"
#include "RawFile.h"
#include "RawGraph.h"

namespace kv::test {

namespace {

using host::format::Section;

constexpr std::uint32_t kHuge32 = 0xffffffff;
constexpr std::uint64_t kHuge64 = ~std::uint64_t{0};
const std::string kLazy = "kalvex.bigdata.internal.lazyeval.";
const std::string kArray = kLazy + "LazyPartitionedArray";

using Build = std::function<void(RawFile&)>;

/// One file with one fault.
struct HostileFile {
  const char* what;
  Build build;
};

/// How files are refused: all with the same section and reason.
struct Refused {
  const char* section;
  std::string reason;  ///< empty for an unknown class, which `section` names
  std::vector<HostileFile> files;
};

using F = RawFile&;

Build section(Section which, const std::string& bytes) {
  return [=](F f) { f.section(which) = bytes; };
}

Build root(Reference reference) {
  return [=](F f) { f.root(reference); };
}

Build inlined(int classCode, std::uint64_t payload, std::uint32_t flags = 0) {
  const auto form = static_cast<std::uint8_t>(ValueForm::Inline);
  return [=](F f) {
    f.root(f.value({static_cast<std::uint8_t>(classCode), form, 0, flags, payload}));
  };
}

Build full(kxClassID id, const std::vector<std::uint64_t>& dimensions,
           const std::string& contents = "", ValueForm form = ValueForm::Full) {
  return [=](F f) { f.root(f.full(id, dimensions, contents, form)); };
}

Build cell(const std::vector<Reference>& elements) {
  return [=](F f) { f.root(f.cell(elements)); };
}

Build nested(int depth, std::size_t copies) {
  return [=](F f) {
    Reference inner = f.number(1);
    for (int i = 0; i < depth; ++i) {
      inner = f.cell(std::vector<Reference>(copies, inner));
    }
    f.root(inner);
  };
}

Reference thing(F f) { return f.object(f.shape("user.Thing")); }

/// An object without properties; any name can be used as its class.
Build objectOf(const std::string& className) {
  return [=](F f) { f.root(f.object(f.shape(className))); };
}

/// A thing with one property.
Build thingWith(const char* property, Reference value = {}) {
  return [=](F f) { f.root(f.object(f.shape("user.Thing", {property}), {value})); };
}

Reference arrayOf(F f, Reference record) {
  return f.object(f.shape(kArray), {record}, ObjectForm::Record);
}

/// A lazy array made from a record with these fields.
Build array(const std::function<Reference(F)>& record) {
  return [=](F f) { f.root(arrayOf(f, record(f))); };
}

/// A thousand objects that share one value of 5 KB.
Build sharing(const char* className, const char* property,
              const std::function<Reference(F)>& makeShared) {
  return [=](F f) {
    const auto shape = f.shape(kLazy + className, {property});
    const Reference shared = makeShared(f);
    std::vector<Reference> objects;
    for (int i = 0; i < 1000; ++i) {
      objects.push_back(f.object(shape, {shared}));
    }
    f.root(f.cell(objects));
  };
}

void addLongFields(F f) {
  const auto name = f.name(std::string(5000, 'x'));
  std::vector<Reference> records;
  for (int i = 0; i < 1000; ++i) {
    records.push_back(f.full(kxSTRUCT_CLASS, {1, 1}, packed({1u, name, 0u, 0u})));
  }
  f.root(f.cell(records));
}

/// A graph with one fault.
Build graph(const std::function<void(RawGraph&)>& change) {
  return [=](F f) {
    RawGraph graph;
    change(graph);
    graph.addTo(f);
  };
}

using G = RawGraph&;

std::string wrong(const char* property, const char* className, const std::string& expected,
                  const std::string& came = "user.Thing") {
  return std::string("property ") + property + " of class " + kLazy + className +
         ": Input must be " + expected + "; it was '" + came + "'.";
}

constexpr Reference kNoValue = Reference::value(0);
constexpr Reference kNoObject = Reference::object(0);

const Refused kTables[] = {
    {"ROOT",
     "the section has 3 bytes, and its entries 4 each",
     {{"half a root", section(Section::Root, "123")}}},
    {"OBJS",
     "the section has 8 bytes, and its entries 16 each",
     {{"half an object", section(Section::Objects, "12345678")}}},
    {"VALS",
     "the section has 8 bytes, and its entries 16 each",
     {{"half a value", section(Section::Values, "12345678")}}},
    {"REFS",
     "the section has 2 bytes, and its entries 4 each",
     {{"half a reference", section(Section::References, "12")}}},
    {"ROOT", "there is one root", {{"two roots", [](F f) { f.root({}), f.root({}); }}}},
    {"ROOT",
     "the root isn't in the file",
     {{"beyond the values", root(kNoValue)}, {"beyond the objects", root(kNoObject)}}},
    {"NAME",
     "the section ends before the 4294967295 bytes that belong here",
     {{"a long name", section(Section::Names, packed(kHuge32) + "name")}}},
    {"NAME",
     "the section ends before the 4 bytes that belong here",
     {{"a length that ends early", section(Section::Names, "\1")}}},
    {"NAME",
     "a name isn't UTF-8",
     {{"no UTF-8 at all", [](F f) { f.name("\xff\xfe"); }},
      {"half a surrogate pair", [](F f) { f.name("\xed\xa0\x80"); }}}},
    {"SHAP",
     "the section ends before the 17179869180 bytes that belong here",
     {{"more properties than bytes", section(Section::Shapes, packed({0u, kHuge32}))}}},
    {"SHAP",
     "a class or its properties have no names of their own",
     {{"a shape without a name", section(Section::Shapes, packed({7u, 0u}))},
      {"a property twice",
       [](F f) {
         f.name("Next");
         f.section(Section::Shapes) = packed({0u, 2u, 0u, 0u});
       }}}},
    {"OBJS",
     "the object has no shape",
     {{"an object without a shape", [](F f) { f.root(f.object(3)); }},
      {"an unknown form", [](F f) { f.root(f.objectAt(f.shape("user.Thing"), 3, 0)); }}}},
    {"OBJS",
     "the object's references aren't in the file",
     {{"beyond the table", [](F f) { f.objectAt(f.shape("user.Thing", {"Next"}), 0, kHuge64); }},
      {"those of another object",
       [](F f) {
         thingWith("Next")(f);
         f.objectAt(0, 0, 0);
       }}}},
    {"OBJS",
     "the object refers to something that isn't in the file",
     {{"a property beyond the objects", thingWith("Next", Reference::object(1))}}},
};

const Refused kValues[] = {
    {"VALS",
     "the value is of no class",
     {{"class 255", inlined(255, 0)},
      {"form 3",
       [](F f) {
         f.root(f.value({kxDOUBLE_CLASS, 3, 0, 0, 0}));
       }}}},
    {"VALS",
     "a value of this class doesn't fit in its entry",
     {{"a text in an entry", inlined(kxSTRING_CLASS, 0)}}},
    {"VALS",
     "only texts have narrow characters",
     {{"a narrow number", full(kxDOUBLE_CLASS, {1, 2}, "ab", ValueForm::Narrow)}}},
    {"VALS",
     "the value has a flag that means nothing",
     {{"a flag of a number", inlined(kxDOUBLE_CLASS, 0, 1)}}},
    {"VALS",
     "a function handle has no name",
     {{"the first of no names", inlined(kxFUNCTION_CLASS, 0)},
      {"beyond all names", inlined(kxFUNCTION_CLASS, kHuge64)}}},
    {"VALS", "a function handle is a name", {{"contents", full(kxFUNCTION_CLASS, {1, 1})}}},
    {"VALS",
     "the name of a function is longer than 4096 bytes",
     {{"a long name", [](F f) { inlined(kxFUNCTION_CLASS, f.name(std::string(4097, 'f')))(f); }}}},
    {"VALS",
     "a logical is neither 0 nor 1",
     {{"a logical of 2", inlined(kxLOGICAL_CLASS, 2)},
      {"logicals of 7", full(kxLOGICAL_CLASS, {1, 2}, "\1\7")}}},
    {"VALS",
     "the value's dimensions aren't in the file",
     {{"data beyond the file",
       [](F f) {
         f.root(f.value({kxDOUBLE_CLASS, 0, 2, 0, kHuge64}));
       }},
      {"one dimension", full(kxDOUBLE_CLASS, {1}, "12345678")},
      {"a thousand", full(kxDOUBLE_CLASS, std::vector<std::uint64_t>(1000, 1), "12345678")}}},
    {"VALS",
     "the value has too many elements",
     {{"a count that overflows", full(kxUINT8_CLASS, {1ULL << 32, 1ULL << 32})},
      {"bytes that overflow", full(kxDOUBLE_CLASS, {1ULL << 61, 1})},
      {"to a small count", full(kxUINT8_CLASS, {1ULL << 62, 1ULL << 62, 1ULL << 62, 16})},
      {"after a zero", full(kxDOUBLE_CLASS, {0, 1ULL << 63, 1ULL << 63})},
      {"before a zero", full(kxDOUBLE_CLASS, {1ULL << 59, 1ULL << 10, 0})},
      {"no texts in too many columns", full(kxSTRING_CLASS, {0, 1ULL << 58})},
      {"structures", full(kxSTRUCT_CLASS, {1ULL << 60, 1}, packed({0u}))}}},
    {"VALS",
     "the value has more elements than the data",
     {{"a cell", full(kxCELL_CLASS, {1, 1'000'000}, "1234")},
      {"fields of a structure", full(kxSTRUCT_CLASS, {1, 1}, packed(kHuge32))}}},
    {"VALS",
     "an object array has more than two dimensions",
     {{"three", full(kxOBJECT_CLASS, {1, 1, 5}, std::string(44, '\0'))}}},
    {"VALS",
     "the texts are longer than the data",
     {{"3 texts", full(kxSTRING_CLASS, {1, 3}, packed({kHuge32, kHuge32, kHuge32}) + "text")}}},
    {"VALS",
     "the structure has a field without a name",
     {{"a field", full(kxSTRUCT_CLASS, {1, 1}, packed({1u, 9u, 0u, 0u}))}}},
    {"VALS",
     "the structure has a field twice",
     {{"a field",
       [](F f) {
         f.name("field");
         full(kxSTRUCT_CLASS, {1, 1}, packed({2u, 0u, 0u}) + std::string(16, '\0'))(f);
       }}}},
    {"VALS",
     "the value refers to something that doesn't come before it",
     {{"a cell in itself", cell({kNoValue})},
      {"a cell of an object that isn't there", cell({kNoObject})},
      {"a cell before its element",
       [](F f) {
         f.root(f.cell({Reference::value(1)}));
         f.number(1);
       }},
      {"a record that holds its object", array([](F f) {
         return f.record({{"ValueFuture", kNoObject}});
       })}}},
    {"VALS",
     "an object array holds something that isn't an object",
     {{"a number", [](F f) { f.root(f.objects("user.Thing", {f.number(1)})); }}}},
    {"VALS",
     "two values have the same data",
     {{"numbers",
       [](F f) {
         f.full(kxDOUBLE_CLASS, {1, 4}, std::string(32, '\0'));
         f.root(f.value({kxDOUBLE_CLASS, 0, 2, 0, 0}));
       }}}},
    {"VALS", "values are nested too deep", {{"100,000 deep", nested(100'000, 1)}}},
    {"VALS",
     "values are nested too often",
     {{"a cell of two cells of two cells, 30 deep", nested(30, 2)},
      {"structures without fields", full(kxSTRUCT_CLASS, {1ULL << 50, 1}, packed(0u))},
      {"rows of no characters", full(kxCHAR_CLASS, {1ULL << 50, 0})},
      {"a thousand times a text of 100 KB",
       [](F f) {
         f.root(f.cell(std::vector<Reference>(1000, f.text(std::string(100'000, 'x')))));
       }}}},
    {"VALS", "many values have the same long names", {{"of fields", addLongFields}}},
};

const Refused kObjects[] = {
    {"no.Such",
     "",
     {{"of an object", objectOf("no.Such")},
      {"of an array", [](F f) { f.root(f.objects("no.Such", {})); }}}},
    {"kalvex.bigdata", "", {{"a package", objectOf("kalvex.bigdata")}}},
    {"user.function", "", {{"a function", objectOf("user.function")}}},
    {"", "", {{"no name", objectOf("")}}},
    {"OBJS",
     "class " + kLazy + "Operation is abstract",
     {{"an abstract class", objectOf(kLazy + "Operation")}}},
    {"OBJS", "class user.Thing has no stored property Other", {{"unknown", thingWith("Other")}}},
    {"OBJS", "class user.Thing has no stored property Seen", {{"computed", thingWith("Seen")}}},
    {"OBJS", "class user.Thing has no stored property run", {{"a method", thingWith("run")}}},
    {"OBJS",
     "class user.Thing saves nothing besides its properties",
     {{"a number",
       [](F f) {
         f.object(f.shape("user.Thing"), {f.number(1)}, ObjectForm::PropertiesAndSaved);
         f.root(kNoObject);
       }}}},
    {"OBJS",
     "an object of class user.Thing is among those of class user.SpecialThing",
     {{"in an array", [](F f) { f.root(f.objects("user.SpecialThing", {thing(f)})); }}}},
    {"OBJS",
     "the object's record isn't a structure",
     {{"no record", array([](F) { return Reference(); })},
      {"a number", array([](F f) { return f.number(1); })}}},
    {"OBJS",
     "two objects have the same record",
     {{"arrays",
       [](F f) {
         const Reference record = f.record({});
         f.root(f.cell({arrayOf(f, record), arrayOf(f, record)}));
       }}}},
    {"OBJS",
     "class user.Thing makes no object of a record",
     {{"a thing",
       [](F f) { f.root(f.object(f.shape("user.Thing"), {f.record({})}, ObjectForm::Record)); }}}},
    {"OBJS",
     "class " + kArray + " makes no object of a record",
     {{"no elements", array([](F f) {
         return f.full(kxSTRUCT_CLASS, {0, 1}, packed({1u, f.name("Version")}));
       })}}},
    {"OBJS",
     "Value must be a string scalar or a character vector.",
     {{"a number as release", array([](F f) {
         return f.record({{"Version", f.number(7.2)}});
       })}}},
    {"OBJS",
     "Input must be scalar " + kLazy + "ClosureFuture; it was 'user.Thing'.",
     {{"a thing as future", array([](F f) {
         const Reference other = thing(f);
         return f.record(
             {{"Version", f.chars("7.2")}, {"ValueFuture", other}, {"PartitionMetadata", other}});
       })}}},
    {"OBJS",
     "many objects copy the same values",
     {{"links", sharing("Closure", "InputFutures",
                        [](F f) {
                          return f.objects(kLazy + "ClosureFuture", std::vector<Reference>(625));
                        })},
      {"an id",
       sharing("ClosurePromise", "Id", [](F f) { return f.text(std::string(5000, 'x')); })}}},
};

/// The setters of the core check the class of their value. Whether a graph as a whole can be
/// evaluated is checked by a library's validator.
const Refused kGraphs[] = {
    {"OBJS",
     wrong("ArgoutIndex", "ClosurePromise", "scalar size_t", "1x1 double"),
     {{"output -1 of a closure", graph([](G g) { g.outputIndex = -1; })}}},
    {"OBJS",
     wrong("Promise", "ClosureFuture", "scalar " + kLazy + "ClosurePromise"),
     {{"a thing as a promise", graph([](G g) { g.futurePromise = g.kThing; })}}},
    {"OBJS",
     wrong("Closure", "ClosurePromise", "scalar " + kLazy + "Closure"),
     {{"a thing as a closure", graph([](G g) { g.promiseClosure = g.kThing; })}}},
    {"OBJS",
     wrong("Future", "ClosurePromise", "scalar " + kLazy + "ClosureFuture"),
     {{"a thing as a future", graph([](G g) { g.promiseFuture = g.kThing; })}}},
    {"OBJS",
     wrong("Operation", "Closure", "scalar " + kLazy + "Operation"),
     {{"a thing as an operation", graph([](G g) { g.operation = g.kThing; })}}},
    {"OBJS",
     wrong("InputFutures", "Closure", kLazy + "ClosureFuture"),
     {{"a thing as an input", graph([](G g) { g.input = g.kThing; })}}},
    {"OBJS",
     wrong("OutputPromises", "Closure", kLazy + "ClosurePromise", kLazy + "Closure"),
     {{"a closure as an output", graph([](G g) { g.output = g.kClosure; })}}},
};

/// An outcome without the offset.
std::string withoutOffset(const std::string& outcome) {
  const std::string corrupt = "KALVEX:load:Corrupt | ";
  const std::size_t section = corrupt.size();
  return !outcome.starts_with(corrupt) ? outcome
                                       : outcome.substr(0, section + 7) +
                                             outcome.substr(outcome.find(" | ", section + 7) + 3);
}

std::string expectedOutcome(const Refused& row) {
  return row.reason.empty()
             ? std::string("KALVEX:load:UnknownClass | ") + row.section
             : std::string("KALVEX:load:Corrupt | ") + row.section + " | " + row.reason;
}

/// Loads the files of a table in one session. Each must be refused as in its row; nothing may be
/// left and no user code may run.
void expectRefused(std::span<const Refused> rows) {
  std::size_t files = 0;
  {
    LoadingSession session;
    const std::string good = session.save(session.chain(3));
    const std::size_t before = session.liveObjects();
    session.takeUserCalls();
    for (const Refused& row : rows) {
      for (const HostileFile& file : row.files) {
        SCOPED_TRACE(file.what);
        RawFile raw;
        file.build(raw);
        EXPECT_EQ(withoutOffset(session.outcomeOf(raw.bytes())), expectedOutcome(row));
        EXPECT_EQ(session.takeUserCalls(), 0u);
        EXPECT_EQ(session.liveObjects(), before);
        EXPECT_TRUE(session.isSound());
        ++files;
      }
    }
    EXPECT_EQ(session.outcomeOf(good), "loaded");
  }
  EXPECT_EQ(host::ledger().objects, 0u);
  EXPECT_EQ(host::ledger().arrays, 0u);
  std::printf("hostile: %zu files refused by section and reason\n", files);
}

TEST(HostileFiles, WithTablesThatDontFit) { expectRefused(kTables); }
TEST(HostileFiles, WithValuesThatCantBe) { expectRefused(kValues); }
TEST(HostileFiles, WithObjectsThatCantBeMade) { expectRefused(kObjects); }
TEST(HostileFiles, WithGraphsOfWrongObjects) { expectRefused(kGraphs); }

TEST(HostileFiles, AreHostileInOneThingOnly) {
  LoadingSession session;
  RawFile file;
  RawGraph().addTo(file);
  EXPECT_EQ(session.outcomeOf(file.bytes()), "loaded");
}

}  // namespace
}  // namespace kv::test
