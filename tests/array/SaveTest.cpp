#include <gmock/gmock.h>
#include <kv/lazyGraph.h>

#include <filesystem>
#include <fstream>

#include "array/ArrayTest.h"
#include "kv/host/session.h"
#include "kv/host/values.h"
#include "kx/string.h"
#include "support/SystemCalls.h"

namespace kv::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Arrays that one session saves in a file and another one opens.
class Save : public ArrayTest {
 protected:
  std::string file = folder.path("arrays.kv");
  Session other;

  std::string idOfOpening(const std::string& path) {
    return errorOf([&] { other.open(path); }).identifier();
  }
};

TEST_F(Save, RestoresArraysByTheirNames) {
  const Table t = read("x,word\n1,a\n2,b\n3,\n");
  const Array late = t.column("x") > 1;
  const std::vector<NamedArray> named = {{"mean of x", mean(t.column("x"))},
                                         {"late", sum(late)},
                                         {"words", t.column("word")},
                                         {"ten", session.constant(10)}};
  session.save(file, named);

  const Opened opened = other.open(file, Trust::Yes);

  ASSERT_EQ(opened.arrays.size(), named.size());
  EXPECT_TRUE(opened.warnings.empty());
  for (std::size_t i = 0; i < named.size(); ++i) {
    EXPECT_EQ(opened.arrays[i].name, named[i].name);
    EXPECT_EQ(opened.arrays[i].array.type(), named[i].array.type());
  }
  EXPECT_EQ(number(opened.arrays[0].array), 2);
  EXPECT_EQ(number(opened.arrays[1].array), 2);
  EXPECT_EQ(opened.arrays[2].array.gather().text(1), "b");
  EXPECT_EQ(number(opened.arrays[0].array + opened.arrays[3].array), 12);
  const Table bytes = other.read(folder.path("table.csv"), {{{"x", "int8"}}});
  EXPECT_EQ((bytes.column("x") * opened.arrays[3].array).type(), "int8") << "a written constant";
  EXPECT_EQ((bytes.column("x") * opened.arrays[1].array).type(), "int64") << "a computed value";
}

TEST_F(Save, KeepsWhatIsRecordedAndEvaluatesItOnlyIfTrusted) {
  const Table t = read("x\n1\n2\n");
  session.seed(3);
  const std::vector<NamedArray> named = {{"n", t.rand() + t.column("x")}};
  session.save(file, named);
  const std::vector<Array> recorded = {named[0].array};

  const Opened looked = other.open(file);
  const std::vector<Array> arrays = {looked.arrays[0].array};
  EXPECT_EQ(other.explain(arrays), session.explain(recorded));
  const Error refused = errorOf([&] { other.gather(arrays); });
  EXPECT_EQ(refused.identifier(), "KALVEX:load:NotTrusted");

  // Saved again, it is unchanged.
  const std::string copy = folder.path("copy.kv");
  other.save(copy, looked.arrays);
  EXPECT_EQ(numbers(other.open(copy, Trust::Yes).arrays[0].array), numbers(named[0].array));
}

/// Traces the system calls of everything that may be done without trust: the only path is that of
/// the file itself.
TEST_F(Save, OpensNoPathOfAFileThatIsNotTrusted) {
  if (!canTrace()) {
    GTEST_SKIP() << "processes can't be traced here";
  }
  const std::vector<Array> inputs = {read("x\n1\n2\n").column("x")};
  const BlockFunction copied = [](std::span<const std::span<const double>> columns) {
    return std::vector<double>(columns[0].begin(), columns[0].end());
  };
  const Array mapped = map("no.such.function", copied, inputs);
  session.save(file, std::vector<NamedArray>{{"y", sum(mapped)}});
  EXPECT_EQ(errorOf([&] { map("empty", nullptr, inputs); }).identifier(),
            "KALVEX:array:NoFunction");
  std::vector<std::string> opened;
  const auto note = [&](const FileCall& call) {
    if (!call.path.empty()) {
      opened.push_back(call.path);
    }
  };
  const auto inspect = [&] {
    const Opened looked = other.open(file);
    const std::vector<Array> arrays = {looked.arrays[0].array};
    const bool isWhole = other.explain(arrays).find("no.such.function") != std::string::npos &&
                         sourceFiles(arrays).size() == 1 && lazyGraph(arrays).nodes.size() > 3;
    const Array more = arrays[0] + 1;
    return errorOf([&] { (void)more.gather(); }).identifier() + (isWhole ? "" : ", not whole");
  };
  EXPECT_EQ(*runTraced(inspect, {}, {.before = note}).outcome, "KALVEX:load:NotTrusted");
  EXPECT_THAT(opened, ElementsAre(file));
}

TEST_F(Save, DistinguishesAnOriginalFromItsCopy) {
  const Array total = sum(read("x\n1\n2\n").column("x"));
  session.save(file, std::vector<NamedArray>{{"total", total}});
  const Array copy = session.open(file, Trust::Yes).arrays[0].array;
  const std::vector<Array> both = {total, copy};

  const LazyGraph graph = lazyGraph(both);
  EXPECT_NE(graph.results[0], graph.results[1]);
  EXPECT_EQ(graph.nodes.size(), 2 * lazyGraph(std::vector{total}).nodes.size());
  EXPECT_THAT(sourceFiles(both), ElementsAre(folder.path("table.csv")));
  const Gathered gathered = session.gather(both);
  EXPECT_EQ(gathered.values[0].number(), 3);
  EXPECT_EQ(gathered.values[1].number(), 3);
  EXPECT_EQ(gathered.facts.passes, 1);
}

TEST_F(Save, KeepsFunctionsByNameUntilTheyAreDefined) {
  const BlockFunction twice = [](std::span<const std::span<const double>> inputs) {
    std::vector<double> result(inputs[0].begin(), inputs[0].end());
    for (double& value : result) {
      value *= 2;
    }
    return result;
  };
  const std::vector<Array> inputs = {read("x\n1\n2\n").column("x")};
  session.save(file, std::vector<NamedArray>{{"y", map("twice", twice, inputs)}});

  const Array y = other.open(file, Trust::Yes).arrays[0].array;
  const Error undefined = errorOf([&] { (void)y.gather(); });
  EXPECT_EQ(undefined.identifier(), "KALVEX:UndefinedFunction");
  EXPECT_THAT(undefined.what(), HasSubstr("'twice'"));
  other.define("twice", twice);
  EXPECT_THAT(numbers(y), ElementsAre(2, 4));
  for (const char* taken : {"", "version", "createFromConstantBuiltin"}) {
    EXPECT_EQ(errorOf([&] { other.define(taken, twice); }).identifier(), "KALVEX:array:NameTaken")
        << taken;
  }
}

TEST_F(Save, RefusesArraysThatCannotBeInOneFile) {
  const Array a = session.constant(1), foreign = other.constant(1);
  const auto idOf = [&](const std::vector<NamedArray>& arrays, const std::string& path) {
    return errorOf([&] { session.save(path, arrays); }).identifier();
  };
  EXPECT_EQ(idOf({}, file), "KALVEX:array:NoArray");
  EXPECT_EQ(idOf({{"a", a}, {"a", a}}, file), "KALVEX:array:SameName");
  EXPECT_EQ(idOf({{"a", a}, {"b", foreign}}, file), "KALVEX:array:TwoSessions");
  EXPECT_EQ(idOf({{"a", a}}, folder.path("no/such/folder")), "KALVEX:save:CannotWrite");
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Save, RefusesFilesThatHoldNoArrays) {
  EXPECT_EQ(idOfOpening(file), "KALVEX:load:CannotRead");
  EXPECT_EQ(idOfOpening(folder.write("text", "x,y\n1,2\n")), "KALVEX:load:Corrupt");
  {
    host::Session plain;
    const host::Session::Scope inside(plain);
    plain.save(file, host::makeDouble(1).get());
  }
  EXPECT_EQ(idOfOpening(file), "KALVEX:array:NotArrays");
  session.save(file, std::vector<NamedArray>{{"a", session.constant(1)}});
  std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
  bytes.seekp(-1, std::ios::end);
  bytes.put('\x7f');
  bytes.close();
  EXPECT_EQ(idOfOpening(file), "KALVEX:load:Corrupt");
}

TEST_F(Save, ReadsOtherDataIfTheOpenerAsksForIt) {
  const std::string older = folder.write("older.csv", "x,y\n1,2\n");
  const std::string newer = folder.write("newer.csv", "x\n2\n3\n");
  session.save(file, std::vector<NamedArray>{{"n", sum(session.read(older).column("x"))}});
  const auto errorOfMoves = [&](const std::vector<MovedData>& moves) {
    return errorOf([&] { other.open(file, {Trust::No, moves}); });
  };
  const auto idOfMove = [&](const std::string& from, const std::string& to) {
    return errorOfMoves({{from, to}}).identifier();
  };

  const Opened opened = other.open(file, {Trust::Yes, {{older, newer}}});

  EXPECT_EQ(number(opened.arrays[0].array), 5);
  EXPECT_EQ(idOfMove("elsewhere", newer), "KALVEX:datastore:UnknownSource");
  EXPECT_EQ(idOfMove(older, folder.write("z.csv", "z\n2\n")), "KALVEX:datastore:MissingColumn");
  EXPECT_EQ(idOfMove(older, "elsewhere"), "KALVEX:datastore:FileNotFound");
  const std::string again = folder.path("./older.csv");
  const Error twice = errorOfMoves({{older, newer}, {again, "b"}});
  EXPECT_EQ(twice.identifier(), "KALVEX:datastore:SourceGivenTwice");
  EXPECT_EQ(twice.arguments(), (std::vector{again, newer, std::string("b")}));
}

/// Saves a structure with the fields of a file of arrays, each with one element.
void saveRecord(const std::string& path, std::vector<std::string_view> fields, bool hasTexts) {
  host::Session plain;
  const host::Session::Scope scope(plain);
  const host::Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
  for (const std::string_view field : fields) {
    host::Value value = Torvane::String::createStringArray(1, 1);
    if (hasTexts) {
      Torvane::String::setString(value.get(), 0, u"double");
    }
    if (field == "AreWeak") {
      value = host::makeLogical(false);
    }
    if (field == "Arrays") {
      value = matrix::from_kalvex(kxCreateCellMatrix(1, 1));
    }
    kxSetField(record.get(), 0, field, value.release());
  }
  plain.save(path, record.get());
}

TEST_F(Save, RefusesIncompleteRecords) {
  const std::vector<std::string_view> all = {"Names", "Types", "AreWeak", "Arrays"};
  for (const std::string_view missing : all) {
    std::vector<std::string_view> fields = all;
    std::erase(fields, missing);
    saveRecord(file, fields, true);
    EXPECT_EQ(idOfOpening(file), "KALVEX:array:NotArrays") << "without " << missing;
  }
  for (const bool hasTexts : {true, false}) {
    saveRecord(file, all, hasTexts);
    EXPECT_EQ(idOfOpening(file), "KALVEX:array:NotArrays") << (hasTexts ? "no array" : "no texts");
  }
}

}  // namespace
}  // namespace kv::test
