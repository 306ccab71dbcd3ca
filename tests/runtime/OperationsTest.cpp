#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>

#include "column/RowPlaces.h"
#include "driver/OpSpecValue.h"
#include "operator/operations.h"
#include "runtime/RuntimeSession.h"
#include "support/Worlds.h"
#include "values/chunkValues.h"
#include "values/hostNames.h"
#include "values/placesValues.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Operations : public RuntimeSession {
 protected:
  Value t = table({"x,y\n1,10\n2,20\n3,30\n", "x,y\n4,40\n5,50\n"});
  Value x = column(t, "x");
  Value y = column(t, "y");

  static Value slices(kcos::NameRef method, const Value& handle, const Value& a, const Value& b) {
    return host::call(method, {handle.get(), a.get(), b.get()});
  }
  static Value choose(const Value& condition, const Value& a, const Value& b) {
    return host::call("ternaryfun", {condition.get(), a.get(), b.get()});
  }
};

TEST_F(Operations, AConditionThatIsOneValueChoosesAnArray) {
  const Value isLong = element("gt", aggregate("sum", x), 10);
  EXPECT_THAT(gather(choose(isLong, x, y)), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(gather(choose(element("lt", aggregate("sum", x), 10), x, y)),
              ElementsAre(10, 20, 30, 40, 50));
  EXPECT_THAT(gather(choose(host::makeLogical(false), x, host::makeDouble(7))),
              ElementsAre(7, 7, 7, 7, 7));
  EXPECT_THAT(gather(choose(isLong, aggregate("min", x), aggregate("max", x))), ElementsAre(1));
  const auto error = errorOf([&] { gather(choose(element("gt", x, 2), x, y)); });
  EXPECT_EQ(error.identifier, "KALVEX:array:Condition");
  EXPECT_THAT(error.arguments, ElementsAre("5 rows of type logical"));
  gather(y);
  const Value rows = host::call("gather", {y.get()});  // of no source any more
  EXPECT_THAT(errorOf([&] { gather(choose(isLong, rows, x)); }).arguments,
              ElementsAre("a value in memory (5 rows)", HasSubstr("read"),
                          "; a value in memory must have one row"));
}

TEST_F(Operations, OnlyTheChosenBranchRuns) {
  int calls = 0;
  const Value counted = host::makeFunctionHandle("counted", [&](const host::Call& call) {
    ++calls;
    call.out(0, matrix::sharedCopy(call.in(0)));
  });
  const auto map = [&](const Value& a) {
    return host::call("elementfun", {counted.get(), a.get()});
  };
  const auto seven = [] { return host::makeDouble(7); };
  const Value yes = element("gt", aggregate("sum", x), 10);
  const Value no = element("lt", aggregate("sum", y), 10);
  const Value unrunnable = host::call("chunkfun", {counted.get(), x.get()});
  const struct {
    const char* name;
    Value array;
    std::vector<double> expected;
    double passes;
  } cases[] = {
      {"rows", choose(yes, x, map(y)), {1, 2, 3, 4, 5}, 2},
      {"reductions", choose(no, aggregate("max", map(y)), aggregate("min", x)), {1}, 2},
      {"nested", choose(no, map(x), choose(yes, y, map(y))), {10, 20, 30, 40, 50}, 1},
      {"the rows of a function", choose(no, map(x), seven()), {7, 7, 7, 7, 7}, 1},
      {"of a filter", choose(no, filter(element("gt", x, 3), map(x)), seven()), {7, 7}, 1},
      {"of a choice", choose(no, choose(yes, map(x), map(y)), seven()), {7, 7, 7, 7, 7}, 1},
      {"what can't run", choose(yes, x, unrunnable), {1, 2, 3, 4, 5}, 1},
  };
  EXPECT_THAT(host::toText(host::call("kv.explain", {cases[0].array.get()}).get()),
              testing::AllOf(HasSubstr("at most 2 passes"), HasSubstr("if #5 is false")));
  for (const auto& c : cases) {
    EXPECT_EQ(gather(c.array), c.expected) << c.name;
    EXPECT_EQ(calls, 0) << c.name;
    EXPECT_EQ(fact("passes"), c.passes) << c.name;
  }
  EXPECT_EQ(gather(choose(no, x, map(y))).size(), 5u);
  EXPECT_EQ(calls, 2) << "a chunk of each partition";
}

TEST_F(Operations, AChoiceOfTablesNeedsTheColumnsThatAreReadThroughIt) {
  const Value read = column(choose(element("gt", aggregate("sum", x), 10), t, t), "z");
  const auto error = errorOf([&] { host::call("kv.checkColumns", {read.get()}); });
  EXPECT_EQ(error.identifier, "KALVEX:datastore:MissingColumn");
  EXPECT_THAT(error.message, HasSubstr("'z'"));
}

TEST_F(Operations, APlanListsTheStepsOfEarlierPassesOnce) {
  const auto linesOf = [&](int repetitions) {
    Value centered = matrix::sharedCopy(x.get());
    for (int i = 0; i < repetitions; ++i) {
      centered = element("minus", centered, aggregate("mean", centered));
    }
    const std::string plan = host::toText(host::call("kv.explain", {centered.get()}).get());
    return std::ranges::count(plan, '\n');
  };
  EXPECT_EQ(linesOf(40) - linesOf(30), linesOf(30) - linesOf(20));
}

/// Any code may set the metadata of an array.
TEST_F(Operations, PositionsOfAnotherCutArentTheRowsOfASource) {
  gather(x);
  gather(y);
  auto places = *placesOf(host::call("hGetMetadata", {x.get()}).get(), 5);
  places.firstRow = {0, 5};
  auto cut = *places.cut;
  cut.partitionRows = {5};
  places.cut = std::make_shared<const RowCut>(cut);
  host::callMany("hSetMetadata", 0, std::vector<const kxArray*>{x.get(), toMetadata(places).get()});
  for (const Value& rows : {column(t, "y"), matrix::sharedCopy(y.get())}) {
    const auto error = errorOf([&] { gather(element("plus", rows, x)); });
    EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer") << error.message;
    EXPECT_THAT(error.arguments, ElementsAre(HasSubstr("(5 rows)"), testing::_, ""))
        << "before any row";
  }
  EXPECT_THAT(gather(aggregate("sum", x)), ElementsAre(15)) << "a cut of its own";
}

TEST_F(Operations, ATableIsNeverOneColumnWithoutAType) {
  const Value none = filter(element("gt", x, 100), t);
  host::call("gather", {none.get()});
  auto places = *placesOf(host::call("hGetMetadata", {none.get()}).get(), 0);
  places.isUntyped = true;
  host::callMany("hSetMetadata", 0,
                 std::vector<const kxArray*>{none.get(), toMetadata(places).get()});
  EXPECT_THAT(gather(column(none, "y")), ElementsAre());
}

TEST_F(Operations, ValuesHaveTheRowsOfTheirColumns) {
  const auto zeros = [](std::size_t m, std::size_t n) {
    return matrix::from_kalvex(
        kxCreateNumericArray(std::array<std::size_t, 2>{m, n}, kxDOUBLE_CLASS));
  };
  const auto broadcast = [](const Value& value) {
    return host::call(kBroadcastArray, {value.get()});
  };
  const auto tableOf = [](const Value& a, const Value& b) {
    return host::call("table", {a.get(), b.get()});
  };
  const Value values[] = {zeros(1, 0),
                          zeros(3, 1),
                          broadcast(zeros(3, 1)),
                          host::makeChars("abc"),
                          tableOf(zeros(2, 1), zeros(2, 1)),
                          zeros(2, 3),
                          zeros(0, 3)};
  for (const Value& value : values) {
    EXPECT_EQ(rowsOf(value.get()), toChunk(value.get()).rows());
  }
  EXPECT_FALSE(rowsOf(host::makeCell({}).get()));
  EXPECT_FALSE(rowsOf(tableOf(zeros(1, 1), zeros(1, 0)).get())) << "columns that differ";
}

TEST_F(Operations, AReductionCallsBothFunctionsUnlessTheyAreOneBuiltIn) {
  const Value sum = host::makeFunctionHandle("kv.aggregate.sum");
  const Value max = host::makeFunctionHandle("kv.aggregate.max");
  std::vector<std::string> seen;
  const Value pair = host::makeFunctionHandle("pair", [&](const host::Call& call) {
    seen.push_back(std::to_string(kxGetM(call.in(0))) + kxGetClassName(call.in(0)));
    call.out(0, host::call("kv.aggregate.count", {call.in(0)}));
    call.out(1, host::call("kv.aggregate.max", {call.in(1)}));
  });
  const auto reduce = [](int outputs, std::vector<const kxArray*> inputs) {
    return host::callMany("aggregatefun", outputs, inputs);
  };
  EXPECT_THAT(gather(reduce(1, {sum.get(), max.get(), x.get()})[0]), ElementsAre(9));
  EXPECT_THAT(gather(reduce(1, {max.get(), sum.get(), x.get()})[0]), ElementsAre(8));
  const auto two = reduce(2, {pair.get(), pair.get(), y.get(), x.get()});
  EXPECT_THAT(gather(two[1]), ElementsAre(5));
  EXPECT_EQ(errorOf([&] {
              gather(reduce(1, {sum.get(), sum.get(), x.get(), y.get()})[0]);
            }).identifier,
            "KALVEX:TooManyInputs");
  EXPECT_EQ(errorOf([&] {
              gather(reduce(2, {sum.get(), sum.get(), x.get()})[1]);
            }).identifier,
            "KALVEX:TooManyOutputs");

  seen.clear();
  const Value none = filter(element("lt", x, 0), element("eq", x, y));
  const auto ofNone = reduce(2, {pair.get(), sum.get(), none.get(), none.get()});
  errorOf([&] { gather(ofNone[0]); });  // the second function takes one input
  EXPECT_THAT(seen, ElementsAre("0logical"));
}

TEST_F(Operations, SlicesAreRowsAndStrictOnesDontSpread) {
  const Value plus = host::makeFunctionHandle("kv.element.plus");
  EXPECT_THAT(gather(slices("slicefun", plus, x, host::makeDouble(1))), ElementsAre(2, 3, 4, 5, 6));
  EXPECT_THAT(gather(slices("strictslicefun", plus, x, y)), ElementsAre(11, 22, 33, 44, 55));
  const auto strict =
      errorOf([&] { gather(slices("strictslicefun", plus, x, host::makeDouble(1))); });
  EXPECT_EQ(strict.identifier, "KALVEX:array:RowsDiffer");
  EXPECT_THAT(strict.arguments, ElementsAre("a value in memory (1 row)", testing::_, ""));
  const Value swap = host::makeFunctionHandle("swap", [](const host::Call& call) {
    call.out(0, matrix::sharedCopy(call.in(1)));
    call.out(1, matrix::sharedCopy(call.in(0)));
  });
  const auto swapped =
      host::callMany("slicefun", 2, std::vector<const kxArray*>{swap.get(), x.get(), y.get()});
  EXPECT_THAT(gather(swapped[1]), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(Operations, LogicalFunctionsMustReturnLogicals) {
  const auto logical = [&](std::string_view name) {
    const Value handle = host::makeFunctionHandle(std::string("kv.element.") + std::string(name));
    return host::call("logicalElementfun", {handle.get(), x.get(), host::makeDouble(3).get()});
  };
  const Value few = host::call("logicalRowSubsref", {logical("lt").get(), y.get()});
  EXPECT_THAT(gather(few), ElementsAre(10, 20));
  const auto error = errorOf([&] { gather(logical("plus")); });
  EXPECT_EQ(error.identifier, "KALVEX:array:NotLogical");
  EXPECT_THAT(error.arguments, ElementsAre("plus", "double"));
}

TEST_F(Operations, MarkingForReuseLeavesTheValueAndTiesKeys) {
  host::call("markforreuse", {x.get()});
  const Value successor = element("plus", x, 1);
  host::call("updateforreuse", {x.get(), successor.get()});
  const auto keyOf = [](const Value& array) {
    Value object = host::getProperty(array.get(), "ValueFuture");
    for (const auto* property : {"Promise", "Closure", "Operation", "CacheEntryKey"}) {
      object = host::getProperty(object.get(), kcos::NameRef::of(property));
    }
    return object;
  };
  EXPECT_EQ(host::toText(host::getProperty(keyOf(successor).get(), "OldId").get()),
            host::toText(host::getProperty(keyOf(x).get(), "Id").get()));
  EXPECT_THAT(gather(successor), ElementsAre(2, 3, 4, 5, 6));
  EXPECT_EQ(fact("passes"), 1);
  EXPECT_THAT(gather(aggregate("sum", x)), ElementsAre(15));
}

TEST_F(Operations, TheLazyGraphIsADigraph) {
  const Value sum = aggregate("sum", x);
  const Value shown = host::call("kalvex.bigdata.internal.optimizer.ClosureGraph", {sum.get()});
  const Value graph = host::getProperty(shown.get(), "Graph");
  EXPECT_EQ(kxGetScalar(host::call("numnodes", {graph.get()}).get()), 9);
  EXPECT_EQ(kxGetScalar(host::call("numedges", {graph.get()}).get()), 8);
  const Value nodes = host::getProperty(graph.get(), "Nodes");
  const Value types = host::call("column", {nodes.get(), host::makeChars("OpType").get()});
  EXPECT_THAT(host::toTexts(host::getProperty(types.get(), "Categories").get()),
              ElementsAre(HasSubstr("AggregateOperation"), HasSubstr("ReadOperation"),
                          HasSubstr("SubsrefTabularVarOperation")));
  const Value undefined = host::call("isundefined", {types.get()});
  const bool* flags = kxGetLogicals(undefined.get());
  EXPECT_EQ(std::count(flags, flags + 9, true), 6);
  const Value texts = host::call("string", {types.get()});
  EXPECT_FALSE(Torvane::String::getString(texts.get(), 1).has_value());
}

TEST_F(Operations, PartitionsOfJoinedArraysFollowOneAnother) {
  const auto metadata = [](double count) {
    return host::call("kalvex.bigdata.internal.PartitionMetadata", {host::makeDouble(count).get()});
  };
  const Value joined =
      host::call("vertcatPartitionMetadataBuiltin", {metadata(2).get(), metadata(3).get()});
  const Value strategy = host::getProperty(joined.get(), "Strategy");
  EXPECT_EQ(kxGetScalar(host::call("numpartitions", {strategy.get()}).get()), 5);
  const auto partition = [&](double index, double count) {
    const Value made = host::call("createPartition", {strategy.get(), host::makeDouble(index).get(),
                                                      host::makeDouble(count).get()});
    return kxGetScalar(host::getProperty(made.get(), "PartitionIndex").get());
  };
  EXPECT_EQ(partition(2, 5), 2);
  EXPECT_EQ(partition(3, 5), 1);
  EXPECT_EQ(partition(5, 5), 3);
  for (const auto& [index, count] : {std::pair{0.0, 5.0}, {6.0, 5.0}, {1.0, 4.0}}) {
    EXPECT_EQ(errorOf([&] { partition(index, count); }).identifier,
              "KALVEX:bigdata:array:ConcatenatedPartitions");
  }
  // Identical nested parts are visited once.
  const auto doubled = [&] {
    Value twice = matrix::sharedCopy(strategy.get());
    for (int depth = 0; depth < 60; ++depth) {
      twice = host::call(kConcatenatedStrategy, {twice.get(), twice.get()});
    }
    return twice;
  };
  const Value a = doubled();
  EXPECT_EQ(kxGetScalar(host::getProperty(a.get(), "MinNumPartitions").get()), 5 * 0x1p60);
  EXPECT_TRUE(host::toLogical(host::call("isCompatible", {a.get(), doubled().get()}).get()));
  const Value number = host::makeDouble(7), flag = host::makeLogical(true);
  const auto resolved = [&](const Value& whole) {
    return host::call("resolve", {whole.get(), number.get(), number.get(), flag.get()});
  };
  EXPECT_TRUE(kxIsA(resolved(a).get(), kConcatenatedStrategy));
  // Nesting is limited only by memory.
  const auto nested = [&] {
    Value whole = matrix::sharedCopy(strategy.get());
    for (std::size_t depth = 0; depth < kv::test::sizes().chain; ++depth) {
      whole = host::call(kConcatenatedStrategy, {whole.get()});
    }
    return whole;
  };
  const Value deep = nested();
  EXPECT_TRUE(host::toLogical(host::call("isCompatible", {deep.get(), nested().get()}).get()));
  EXPECT_EQ(kxGetScalar(host::getProperty(resolved(deep).get(), "MinNumPartitions").get()), 5);
}

/// Operations of every class with any number of inputs and outputs, as users can make them.
class Arity : public Operations {
 protected:
  /// A value for the constructor's input of that name.
  Value inputFor(std::string_view name, std::size_t inputs, std::size_t outputs) {
    if (name == "NumInputs" || name == "NumArrays") {
      return host::makeDouble(static_cast<double>(inputs));
    }
    if (name == "NumOutputs" || name == "NumKept") {
      return host::makeDouble(static_cast<double>(outputs));
    }
    if (name == "Options") {
      return host::call("kalvex.bigdata.internal.PartitionedArrayOptions");
    }
    if (name == "FunctionHandle" || name == "ReduceHandle") {
      return host::call(kFunctionHandle, {host::makeFunctionHandle("kv.element.plus").get()});
    }
    if (name == "Datastore") {
      const std::string path = folder.write("a.csv", "x,y\n1,2\n");
      return host::call(kCsvDatastore, {host::makeString(path).get()});
    }
    return name == "Rows" ? host::makeChars(":") : host::makeString("x");
  }

  Value operation(const OperationClass& row, std::size_t inputs, std::size_t outputs) {
    std::vector<Value> values;
    std::vector<const kxArray*> arguments;
    for (const std::string_view name : row.inputs) {
      values.push_back(name == "Content" ? host::makeLogical(true)
                                         : inputFor(name, inputs, outputs));
      arguments.push_back(values.back().get());
    }
    return host::call(kcos::NameRef::of(row.name), arguments);
  }

  /// Arrays of a new closure of the operation with `inputs` inputs, all `x`.
  std::vector<Value> arrays(const Value& operation, std::size_t inputs) {
    const Value futures = matrix::from_kalvex(
        kcos::omCreateKCOSMatrix(inputs, 1, kcos::internal::makeInterned(kClosureFuture)));
    const Value future = host::getProperty(x.get(), "ValueFuture");
    for (std::size_t i = 0; i < inputs; ++i) {
      kcos::omSetArrayElement(futures.get(), i, kcos::omGetArrayElement(future.get(), 0));
    }
    const Value closure = host::call(kClosure, {futures.get(), operation.get()});
    const Value promises = host::getProperty(closure.get(), "OutputPromises");
    const Value metadata = host::getProperty(x.get(), "PartitionMetadata");
    std::vector<Value> made;
    for (std::size_t i = 0; i < kxGetNumberOfElements(promises.get()); ++i) {
      const Value promise =
          matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(promises.get(), i)));
      made.push_back(host::call("createFromFutureBuiltin",
                                {host::getProperty(promise.get(), "Future").get(),
                                 host::getProperty(metadata.get(), "Strategy").get()}));
    }
    return made;
  }

  /// The id of the error that some work ends with; "" if it succeeds.
  template <class Work>
  static std::string idOf(Work&& work) {
    try {
      work();
    } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
      return host::errorRecord(envelope).identifier;
    }
    return "";
  }
};

TEST_F(Arity, OfEveryOperationIsCheckedWhereItIsMadePlannedAndLoaded) {
  std::map<std::string, int> outcomes;
  const auto tryAll = [&](const OperationClass& row, std::size_t inputs, std::size_t outputs,
                          std::size_t futures) {
    const std::vector<Value> made = arrays(operation(row, inputs, outputs), futures);
    for (const Value& array : made) {
      ++outcomes[idOf([&] { host::call("kv.explain", {array.get()}); })];
      ++outcomes[idOf([&] { host::call("gather", {array.get()}); })];
      ++outcomes[idOf([&] { session.loadBytes(session.saveBytes(array.get()), true); })];
    }
  };
  for (const OperationClass* row : operationClasses()) {
    for (std::size_t inputs = 0; inputs <= 4 && !row->isNative; ++inputs) {
      for (std::size_t outputs = 0; outputs <= 3; ++outputs) {
        for (std::size_t futures = 0; futures <= 4; ++futures) {
          ++outcomes[idOf([&] { tryAll(*row, inputs, outputs, futures); })];
        }
      }
    }
  }
  for (const auto& [id, count] : outcomes) {
    EXPECT_THAT(id, testing::AnyOf("", testing::StartsWith("KALVEX:"))) << count;
    EXPECT_NE(id, "KALVEX:NativeException") << count;
  }
  EXPECT_GT(outcomes["KALVEX:array:OperationArity"], 0);
  EXPECT_GT(outcomes["KALVEX:load:Corrupt"], 0);
}

TEST_F(Operations, WhatCannotRunIsRefusedByName) {
  const auto function = [](int numOutputs, auto firstOutput) {
    return host::makeFunctionHandle("mine", [=](const host::Call& call) {
      call.out(0, firstOutput());
      for (int i = 1; i < numOutputs; ++i) {
        call.out(i, matrix::sharedCopy(call.in(1)));
      }
    });
  };
  const auto isFinished = [] { return host::makeLogical(false); };
  const Value counts = function(2, [] { return host::makeDouble(1); });
  const Value returnsColumn = function(3, isFinished);
  const Value returnsMore = host::makeFunctionHandle("mine", [&](const host::Call& call) {
    call.out(0, isFinished());
    std::vector<Value> unused;
    unused.push_back(host::makeStringColumn(std::vector<std::string>{"more", "than", "given"}));
    call.out(1, host::makeCell(std::move(unused)));
    call.out(2, matrix::sharedCopy(call.in(1)));
  });
  const Value builder = host::call(kProcessorBuilder, {host::makeDouble(1).get()});
  const auto unrunnable = [](const Value& input) {
    const Value factory = host::call(kSpecFactory, {nullptr, nullptr, nullptr});
    host::setNativeValue(factory.get(), std::make_unique<OpSpecValue>(std::make_shared<OpSpec>()));
    return host::call(kProcessorBuilder, {input.get(), factory.get()});
  };
  const struct {
    const char* id;
    std::function<void()> run;
  } cases[] = {
      {"KALVEX:array:PartitionResult",
       [&] {
         gather(host::call("partitionfun", {counts.get(), x.get()}));
       }},
      {"KALVEX:array:PartitionResult",
       [&] {
         gather(host::call("generalpartitionfun", {returnsColumn.get(), x.get()}));
       }},
      {"KALVEX:array:UnusedRows",
       [&] {
         gather(host::call("generalpartitionfun", {returnsMore.get(), x.get()}));
       }},
      {"KALVEX:array:HeadRows",
       [] {
         host::call("kalvex.bigdata.internal.lazyeval.HeadOperation",
                    {host::makeDouble(1).get(), host::makeDouble(0.5).get()});
       }},
      {"KALVEX:array:NotRunnable",
       [&] { host::call("feval", {unrunnable(unrunnable(builder)).get()}); }},
  };
  for (const auto& [id, run] : cases) {
    EXPECT_EQ(errorOf(run).identifier, id);
  }
}

}  // namespace
}  // namespace kv::runtime::test
