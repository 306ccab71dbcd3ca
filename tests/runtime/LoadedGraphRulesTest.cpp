#include <gmock/gmock.h>

#include <functional>

#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

constexpr std::string_view kLazy = "kalvex.bigdata.internal.lazyeval.";

/// Graphs that no call would make, saved and opened: setters are there for loads and check nothing.
class LoadedGraphRules : public RuntimeSession {
 protected:
  struct Chain {
    Value array, future, promise, closure, upstreamFuture, upstreamPromise, upstreamClosure;
  };

  /// An array of a closure that reads the array of another one.
  static Chain chain() {
    const Value x = host::call("createFromConstantBuiltin", {host::makeDouble(1).get()});
    const Value handle = host::makeFunctionHandle("f", [](const host::Call&) {});
    Chain made;
    const Value inner = host::call("clientfun", {handle.get(), x.get()});
    made.array = host::call("clientfun", {handle.get(), inner.get()});
    made.future = get(made.array, "ValueFuture");
    made.promise = get(made.future, "Promise");
    made.closure = get(made.promise, "Closure");
    made.upstreamFuture = get(inner, "ValueFuture");
    made.upstreamPromise = get(made.upstreamFuture, "Promise");
    made.upstreamClosure = get(made.upstreamPromise, "Closure");
    return made;
  }

  static Value get(const Value& object, std::string_view property) {
    return host::getProperty(object.get(), kcos::NameRef::of(property));
  }
  /// Uses the rights of the class, whose property is private.
  void set(const Value& object, std::string_view property, const Value& value) {
    session.set(object.get(), property, value.get(), kxGetClassName(object.get()));
  }
  static Value column(std::string_view className, std::size_t rows) {
    return matrix::from_kalvex(kcos::omCreateKCOSMatrix(
        rows, 1,
        kcos::internal::makeInterned(
            kcos::NameRef::of(std::string(kLazy) + std::string(className)))));
  }

  /// The error of loading `value`; "loaded" if there is none.
  std::string verdict(const Value& value) {
    const std::string bytes = session.saveBytes(value.get());
    host::Session other;
    load(other);
    const host::Session::Scope inside(other);
    try {
      other.loadBytes(bytes, true);
    } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
      const host::ErrorRecord error = host::errorRecord(envelope);
      EXPECT_EQ(error.identifier, "KALVEX:load:Corrupt");
      other.collect();
      return error.arguments.at(2);
    }
    return "loaded";
  }
};

TEST_F(LoadedGraphRules, RefuseGraphsThatNoCallMakes) {
  const Value nothing = host::makeEmptyDouble();
  struct Case {
    const char* what;
    std::function<void(const Chain&)> spoil;
  };
  const Case cases[] = {
      {"loaded", [](const Chain&) {}},
      {"a Closure depends on itself",
       [&](const Chain& c) { set(c.upstreamClosure, "InputFutures", c.future); }},
      {"a Closure depends on itself",
       [&](const Chain& c) { set(c.closure, "InputFutures", c.future); }},
      {"a pending ClosurePromise has no closure",
       [&](const Chain& c) { set(c.promise, "Closure", nothing); }},
      {"a ClosurePromise isn't an output of its closure",
       [&](const Chain& c) { set(c.promise, "Closure", c.upstreamClosure); }},
      {"a ClosureFuture has no Promise",
       [&](const Chain& c) { set(c.upstreamFuture, "Promise", nothing); }},
      {"the promise of a ClosureFuture has another future",
       [&](const Chain& c) { set(c.future, "Promise", c.upstreamPromise); }},
      {"the future of a ClosurePromise is that of another",
       [&](const Chain& c) { set(c.promise, "Future", c.upstreamFuture); }},
      {"a ClosurePromise has no Future",
       [&](const Chain& c) { set(c.upstreamPromise, "Future", nothing); }},
      {"a ClosurePromise is output 0 of a Closure with 1 outputs",
       [&](const Chain& c) { set(c.promise, "ArgoutIndex", host::makeDouble(0)); }},
      {"a ClosurePromise is output 2 of a Closure with 1 outputs",
       [&](const Chain& c) { set(c.promise, "ArgoutIndex", host::makeDouble(2)); }},
      {"a ClosurePromise is an output of two closures",
       [&](const Chain& c) { set(c.closure, "OutputPromises", c.upstreamPromise); }},
      {"a Closure has 0 outputs and its operation 1",
       [&](const Chain& c) { set(c.closure, "OutputPromises", column("ClosurePromise", 0)); }},
      {"an output of a Closure is missing",
       [&](const Chain& c) { set(c.closure, "OutputPromises", column("ClosurePromise", 1)); }},
      {"an input of a Closure is missing",
       [&](const Chain& c) { set(c.upstreamClosure, "InputFutures", column("ClosureFuture", 1)); }},
      {"an id is longer than 256 bytes",
       [&](const Chain& c) { set(c.promise, "Id", host::makeString(std::string(257, 'x'))); }},
      {"a Closure has no Operation",
       [&](const Chain& c) { set(c.upstreamClosure, "Operation", nothing); }},
      {"a LazyPartitionedArray has no ValueFuture",
       [&](const Chain& c) { set(c.array, "ValueFuture", nothing); }},
      {"a LazyPartitionedArray has no PartitionMetadata",
       [&](const Chain& c) { set(c.array, "PartitionMetadata", nothing); }},
  };
  for (const Case& each : cases) {
    const Chain made = chain();
    each.spoil(made);
    EXPECT_EQ(verdict(made.array), each.what);
  }
}

TEST_F(LoadedGraphRules, TakeValuesOfNothingAndEqualIds) {
  const Chain made = chain();
  set(made.upstreamPromise, "Id", get(made.promise, "Id"));
  set(made.upstreamClosure, "Id", get(made.closure, "Id"));
  EXPECT_EQ(verdict(made.array), "loaded");
  const Value nothing = host::call("createFromConstantBuiltin", {host::makeEmptyDouble().get()});
  EXPECT_EQ(verdict(nothing), "loaded");
}

/// Methods of these classes rely on values that their constructors made.
TEST_F(LoadedGraphRules, RefuseObjectsOfTheRuntimeThatDoNotFit) {
  using ::testing::HasSubstr;
  const Value texts = host::makeString("a");
  const Value categorical = host::call("categorical", {texts.get()});
  set(categorical, "Codes", host::makeDouble(2));
  EXPECT_THAT(verdict(categorical), HasSubstr("codes of categories"));

  std::vector<Value> one;
  one.push_back(host::makeDouble(1));
  const Value cell = host::makeCell(std::move(one));
  const Value map = host::call("containers.Map", {texts.get(), cell.get()});
  set(map, "Values", host::makeCell({}));
  EXPECT_THAT(verdict(map), HasSubstr("value for each key"));

  const Value table = host::call("table", {cell.get()});
  set(table, "Columns", host::makeDouble(1));
  EXPECT_THAT(verdict(table), HasSubstr("cell"));

  const Value part = host::call("kalvex.bigdata.internal.executor.BroadcastPartitionStrategy");
  const Value whole =
      host::call("kalvex.bigdata.internal.executor.ConcatenatedPartitionStrategy", {part.get()});
  EXPECT_EQ(verdict(whole), "loaded");
  Value deep = matrix::sharedCopy(whole.get());
  for (int i = 0; i < 1000; ++i) {
    deep =
        host::call("kalvex.bigdata.internal.executor.ConcatenatedPartitionStrategy", {deep.get()});
  }
  EXPECT_THAT(verdict(deep), HasSubstr("nested 1001 deep"));
  const Value rows =
      host::call("kalvex.bigdata.internal.lazyeval.FilterOperation", {host::makeDouble(1).get()});
  session.set(rows.get(), "NumInputs", host::makeDouble(1).get(),
              "kalvex.bigdata.internal.lazyeval.Operation");
  EXPECT_THAT(verdict(rows), HasSubstr("FilterOperation takes at least 2 inputs, got 1"));

  std::vector<Value> self;
  self.push_back(matrix::sharedCopy(whole.get()));
  set(whole, "Strategies", host::makeCell(std::move(self)));
  EXPECT_THAT(verdict(whole), HasSubstr("holds itself"));
}

}  // namespace
}  // namespace kv::runtime::test
