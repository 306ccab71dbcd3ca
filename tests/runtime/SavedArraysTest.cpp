#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "persistence/MovedTables.h"
#include "runtime/RuntimeSession.h"
#include "source/csv/CsvDatastore.h"
#include "support/TempFolder.h"
#include "values/hostNames.h"

namespace kv::runtime::test {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Arrays that one session saves and another one opens.
class SavedArrays : public RuntimeSession {
 protected:
  SavedArrays() { load(other); }

  std::string bytesOf(const Value& value) { return session.saveBytes(value.get()); }

  /// Runs `body` with the value that the other session loads from the bytes.
  template <class Body>
  void opened(const std::string& bytes, bool trusted, Body&& body) {
    const host::Session::Scope inside(other);
    body(other.loadBytes(bytes, trusted));
    EXPECT_EQ(other.verify(), std::vector<std::string>{});
  }

  static std::string explain(const Value& array) {
    return host::toText(host::call("kv.explain", {array.get()}).get());
  }

  host::Session other;
};

TEST_F(SavedArrays, AreEvaluatedElsewhereAsTheyWereRecorded) {
  const Value t = table({"x,y\n1,2\n3,4\n", "x,y\n5,6\n"});
  const Value array = aggregate("sum", element("times", column(t, "x"), column(t, "y")));
  const std::string plan = explain(array);
  opened(bytesOf(array), true, [&](const Value& again) {
    EXPECT_EQ(explain(again), plan);
    EXPECT_THAT(gather(again), ElementsAre(44));
    EXPECT_EQ(fact("rows"), 3);
  });
  EXPECT_THAT(gather(array), ElementsAre(44));
}

TEST_F(SavedArrays, KeepTheirTypesAndTheirRandomNumbers) {
  const std::vector<std::string> paths{folder.write("n.csv", "n\n9007199254740993\n2\n")};
  const std::vector<std::string> names{"n"}, types{"int64"};
  const Value source = host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get(),
                                                             host::makeStringColumn(names).get(),
                                                             host::makeStringColumn(types).get()});
  const Value t = host::call("createFromDatastoreBuiltin", {source.get()});
  const Value label = host::makeChars("RequiresRandState"), yes = host::makeLogical(true);
  const Value options =
      host::call("kalvex.bigdata.internal.PartitionedArrayOptions", {label.get(), yes.get()});
  const Value draw = host::makeFunctionHandle("kv.random.rows");
  const Value numbers = host::call("elementfun", {options.get(), draw.get(), column(t, "n").get()});
  const std::vector<double> drawn = gather(numbers);
  const Value unread = host::call("elementfun", {options.get(), draw.get(), column(t, "n").get()});

  opened(bytesOf(unread), true, [&](const Value& again) { EXPECT_EQ(gather(again), drawn); });
  opened(bytesOf(aggregate("max", column(t, "n"))), true, [&](const Value& again) {
    const Value value = host::call("gather", {again.get()});
    EXPECT_EQ(*static_cast<const std::int64_t*>(kxGetData(value.get())), 9007199254740993);
  });
}

TEST_F(SavedArrays, AreNotEvaluatedWithoutTrust) {
  const Value array = aggregate("sum", column(table({"x\n1\n2\n"}), "x"));
  opened(bytesOf(array), false, [&](const Value& again) {
    EXPECT_THAT(explain(again), HasSubstr("sum"));
    EXPECT_NO_THROW(other.saveBytes(again.get()));
    const Value more = element("plus", again, 1);
    for (const Value* evaluated : {&again, &more}) {
      const host::ErrorRecord error = errorOf([&] { gather(*evaluated); });
      EXPECT_EQ(error.identifier, "KALVEX:load:NotTrusted");
      EXPECT_THAT(error.arguments.at(0), HasSubstr("read"));
    }
    const host::ErrorRecord saved = errorOf([&] {
      gather(*std::make_unique<Value>(other.loadBytes(other.saveBytes(more.get()), false)));
    });
    EXPECT_EQ(saved.identifier, "KALVEX:load:NotTrusted");
  });
}

/// Nothing loaded from a file is called, neither itself nor a copy.
TEST_F(SavedArrays, AllowNoOperationWithoutTrust) {
  const Value plus = host::makeFunctionHandle("kv.element.plus");
  const Value pending = element("plus", column(table({"x\n1\n"}), "x"), 1);
  opened(bytesOf(pending), false, [&](const Value& again) {
    const Value promise =
        host::getProperty(host::getProperty(again.get(), "ValueFuture").get(), "Promise");
    const Value closure = host::getProperty(promise.get(), "Closure");
    const Value operation = host::getProperty(closure.get(), "Operation");
    const Value function = host::getProperty(operation.get(), "FunctionHandle");
    const Value handle = host::getProperty(function.get(), "Handle");
    const Value one = host::makeDouble(1);
    const std::string refused = "KALVEX:load:NotTrusted";
    const std::vector<const kxArray*> sums{operation.get(), one.get(), one.get()};
    EXPECT_EQ(errorOf([&] { host::call("applyOperationBuiltin", sums); }).identifier, refused);
    EXPECT_EQ(errorOf([&] { host::call("directEvaluate", sums); }).identifier, refused);
    for (const Value* called : {&function, &handle}) {
      EXPECT_EQ(errorOf([&] {
                  host::call("feval", {called->get(), one.get(), one.get()});
                }).identifier,
                refused);
    }
    EXPECT_EQ(errorOf([&] { host::call("copy", {function.get()}); }).identifier, refused);
    const Value own = column(table({"x\n1\n"}), "x");
    for (const Value* lent : {&function, &handle}) {
      const Value twice = host::call("elementfun", {lent->get(), own.get(), own.get()});
      EXPECT_EQ(errorOf([&] { gather(twice); }).identifier, refused);
    }
  });
}

TEST_F(SavedArrays, AllowNoSourceWithoutTrust) {
  opened(bytesOf(table({"x\n1\n"})), false, [&](const Value& again) {
    const Value future = host::getProperty(again.get(), "ValueFuture");
    const Value promise = host::getProperty(future.get(), "Promise");
    const Value closure = host::getProperty(promise.get(), "Closure");
    const Value loaded = host::getProperty(closure.get(), "Operation");
    const Value source = host::getProperty(loaded.get(), "Datastore");
    const Value inputs = host::getProperty(closure.get(), "InputFutures");
    EXPECT_EQ(errorOf([&] { host::call("createFromDatastoreBuiltin", {source.get()}); }).identifier,
              "KALVEX:load:NotTrusted");

    const Value own = host::call(kReadOperation, {source.get(), host::makeDouble(1).get()});
    const Value reader = host::call(kClosure, {inputs.get(), own.get()});
    const Value output = host::getProperty(reader.get(), "OutputPromises");
    const Value metadata = host::getProperty(again.get(), "PartitionMetadata");
    const Value read =
        host::call("createFromFutureBuiltin", {host::getProperty(output.get(), "Future").get(),
                                               host::getProperty(metadata.get(), "Strategy").get(),
                                               host::call(kSerialExecutor).get()});
    EXPECT_EQ(errorOf([&] { gather(column(read, "x")); }).identifier, "KALVEX:load:NotTrusted");
  });
}

TEST_F(SavedArrays, ReportWhichSourceIsGoneOrHasChanged) {
  const Value array = aggregate("sum", column(table({"x\n1\n2\n"}), "x"));
  const std::string bytes = bytesOf(array), path = folder.path("f0.csv");
  folder.write("f0.csv", "x\n1\n2\n3\n");
  opened(bytes, true, [&](const Value& again) {
    const host::ErrorRecord error = errorOf([&] { gather(again); });
    EXPECT_EQ(error.identifier, "KALVEX:datastore:SourceChanged");
    EXPECT_THAT(error.arguments, ElementsAre(path, testing::_, testing::_));
  });
  std::filesystem::remove(path);
  opened(bytes, true, [&](const Value& again) {
    EXPECT_THAT(explain(again), HasSubstr("f0.csv"));
    const host::ErrorRecord error = errorOf([&] { gather(again); });
    EXPECT_EQ(error.identifier, "KALVEX:datastore:SourceGone");
    EXPECT_THAT(error.message, HasSubstr(path));
  });
}

/// Closures and promises of an array and of its copy have the same ids.
TEST_F(SavedArrays, MeetTheirOriginals) {
  const Value x = column(table({"x\n1\n2\n", "x\n3\n"}), "x");
  const Value total = aggregate("sum", x);
  const Value copy = session.loadBytes(bytesOf(total), true);
  const Value difference = element("minus", total, element("times", copy, 10));
  const Value both = session.loadBytes(bytesOf(difference), true);

  const std::vector<Value> values = host::callMany(
      "gather", 4,
      std::vector<const kxArray*>{difference.get(), copy.get(), total.get(), both.get()});

  EXPECT_EQ(kxGetScalar(values[0].get()), -54);
  EXPECT_EQ(kxGetScalar(values[1].get()), 6);
  EXPECT_EQ(kxGetScalar(values[2].get()), 6);
  EXPECT_EQ(kxGetScalar(values[3].get()), -54);
  EXPECT_EQ(fact("passes"), 1);
  EXPECT_THAT(gather(element("plus", x, session.loadBytes(bytesOf(x), true))),
              ElementsAre(2, 4, 6));
}

TEST_F(SavedArrays, OfAnotherReleaseNameItWhenTheyAreUsed) {
  const Value x = column(table({"x\n1\n2\n"}), "x");
  session.defineFunction("version",
                         [](const host::Call& call) { call.out(0, host::makeChars("0.0.7")); });
  const std::string bytes = bytesOf(aggregate("sum", x));
  opened(bytes, true, [&](const Value& again) {
    ASSERT_EQ(other.warnings().size(), 1u);
    EXPECT_THAT(other.warnings()[0].arguments, ElementsAre("0.0.7"));
    EXPECT_FALSE(host::toLogical(host::getProperty(again.get(), "IsValid").get()));
    EXPECT_THAT(explain(again), HasSubstr("0.0.7"));
    const Value valid = column(table({"x\n1\n"}), "x");
    for (const Value& used : {element("plus", again, 1), element("plus", again, valid),
                              element("plus", valid, again)}) {
      const host::ErrorRecord error = errorOf([&] { gather(used); });
      EXPECT_EQ(error.identifier, "KALVEX:bigdata:array:InvalidTallVersion");
      EXPECT_THAT(error.arguments, ElementsAre("0.0.7"));
    }
  });
}

TEST_F(SavedArrays, OfFunctionsNeedThemDefined) {
  const Value twice = host::makeFunctionHandle("twice", [](const host::Call& call) {
    call.out(0, host::call("kv.element.plus", {call.in(0), call.in(0)}));
  });
  const Value x = column(table({"x\n1\n2\n"}), "x");
  const std::string bytes = bytesOf(host::call("elementfun", {twice.get(), x.get()}));
  opened(bytes, true, [&](const Value& again) {
    const host::ErrorRecord error = errorOf([&] { gather(again); });
    EXPECT_EQ(error.identifier, "KALVEX:UndefinedFunction");
    EXPECT_THAT(error.message, HasSubstr("'twice'"));
    other.defineFunction("twice", *host::callableBody(twice.get()));
    EXPECT_THAT(gather(again), ElementsAre(2, 4));
  });
}

TEST_F(SavedArrays, OfStagesAndStreams) {
  const Value stream = host::call("RandStream", {host::makeDouble(5).get()});
  const Value three = host::makeDouble(3);
  host::call("rand", {stream.get(), three.get()});
  const std::string bytes = bytesOf(stream);
  const double next =
      kxGetScalar(host::call("rand", {stream.get(), host::makeDouble(1).get()}).get());
  opened(bytes, false, [&](const Value& again) {
    EXPECT_EQ(kxGetScalar(host::call("rand", {again.get(), host::makeDouble(1).get()}).get()),
              next);
  });

  const Value keys = host::makeStringColumn(std::vector<std::string>{"k", "j", "k"});
  std::vector<Value> held;
  for (const double value : {1, 2, 8}) {
    held.push_back(host::makeDouble(value));
  }
  const Value map =
      host::call("containers.Map", {keys.get(), host::makeCell(std::move(held)).get()});
  const auto expectEachKeyOnce = [](const Value& made) {
    EXPECT_EQ(kxGetScalar(host::getProperty(made.get(), "Count").get()), 2);
    EXPECT_THAT(host::toTexts(host::call("keys", {made.get()}).get()), ElementsAre("k", "j"));
    const Value values = host::call("values", {made.get()});
    ASSERT_EQ(kxGetNumberOfElements(values.get()), 2u);
    EXPECT_EQ(kxGetScalar(kxGetCell(values.get(), 0)), 8);
    EXPECT_EQ(kxGetScalar(host::call("lookup", {made.get(), host::makeString("k").get()}).get()),
              8);
  };
  expectEachKeyOnce(map);
  opened(bytesOf(map), false, expectEachKeyOnce);

  const Value array = aggregate("sum", column(table({"x\n1\n"}), "x"));
  const kxArray* inputs[] = {array.get()};
  const std::vector<Value> objects = session.call(
      "getEvaluationObjects", 1, inputs, "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray");
  EXPECT_EQ(errorOf([&] { bytesOf(objects.at(0)); }).identifier, "KALVEX:save:NotSaveable");
}

TEST(MovedTables, StayInTheFolderThatWasNamed) {
  const kv::test::TempFolder folder;
  const std::string inside = folder.write("new/b/a.csv", "x\n1\n");
  const auto pathOf = [](MovedTables& tables, const std::string& path,
                         const std::string& absolute) {
    const auto saved = std::make_shared<const CsvDatastore>(CsvTable{
        {"t", {{path, absolute, 4, 1, true}}, {{"x", ElementType::Double}}}, usualFormat()});
    return tables.moved(saved)->table().files.at(0).absolutePath;
  };
  const std::pair<std::string, std::string> cases[] = {
      {"/old/b/a.csv", inside},
      {"/old//b/./c/../a.csv", inside},
      {"/old/../new/b/a.csv", "/old/../new/b/a.csv"},
      {"/old/..", "/old/.."}};
  for (const auto& [absolute, expected] : cases) {
    MovedTables tables({{"/old", folder.path("new")}});
    EXPECT_EQ(pathOf(tables, absolute, absolute), expected);
  }
  MovedTables tables({{"a.csv", inside}});  // one file with two paths
  EXPECT_EQ(pathOf(tables, "b.csv", "/old/a.csv"), "/old/a.csv");
  EXPECT_EQ(pathOf(tables, "a.csv", "/old/a.csv"), inside);
  EXPECT_EQ(pathOf(tables, "a.csv", ".."), "..");
}

}  // namespace
}  // namespace kv::runtime::test
