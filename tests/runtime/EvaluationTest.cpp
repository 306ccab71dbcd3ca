#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "column/pool.h"
#include "driver/Evaluation.h"
#include "runtime/RuntimeSession.h"
#include "support/RulesOff.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Two partitions: x from 1 to 5, and y ten times x.
constexpr std::string_view kFirst = "x,y\n1,10\n2,20\n3,30\n";
constexpr std::string_view kSecond = "x,y\n4,40\n5,50\n";

class Evaluation : public RuntimeSession {};

TEST_F(Evaluation, GathersRowsOfAllPartitionsInOrder) {
  const Value t = table({kFirst, kSecond});
  EXPECT_THAT(gather(element("plus", column(t, "x"), column(t, "y"))),
              ElementsAre(11, 22, 33, 44, 55));
  EXPECT_EQ(fact("rows"), 5);
  EXPECT_EQ(fact("passes"), 1);
}

TEST_F(Evaluation, GatheredAndPendingValuesCombineRowByRow) {
  const Value t = table({kFirst, kSecond});
  const Value x = column(t, "x");
  const Value odd = element("ne", x, 2);
  const Value kept = filter(odd, x);
  gather(x);
  gather(kept);
  const Value keptY = filter(element("ne", column(t, "x"), 2), column(t, "y"));

  EXPECT_THAT(gather(element("plus", x, column(t, "y"))), ElementsAre(11, 22, 33, 44, 55));
  EXPECT_THAT(gather(element("plus", kept, keptY)), ElementsAre(11, 33, 44, 55));
  const Value computedAtOnce = element("times", kept, 2);
  EXPECT_THAT(gather(element("plus", computedAtOnce, keptY)), ElementsAre(12, 36, 48, 60));
  const Value centred = element("minus", kept, aggregate("mean", column(t, "x")));
  EXPECT_THAT(gather(element("plus", keptY, centred)), ElementsAre(8, 30, 41, 52));
  EXPECT_EQ(fact("passes"), 2) << "for the mean, and for the rows of y";
}

TEST_F(Evaluation, AValueWithoutRowsAndTypeStaysSoWhenGathered) {
  const Value x = column(table({kFirst}), "x");
  const Value positive = host::makeFunctionHandle("positive", [](const host::Call& call) {
    call.out(0, host::call("kv.element.gt", {call.in(0), host::makeDouble(0).get()}));
  });
  const Value none =
      host::call("elementfun", {positive.get(), filter(element("lt", x, 0), x).get()});
  const auto any = [&] { return host::call("gather", {aggregate("any", none).get()}); };
  const Value pending = any();
  gather(none);
  EXPECT_STREQ(kxGetClassName(any().get()).c_str(), kxGetClassName(pending.get()).c_str());
}

TEST_F(Evaluation, WhichRowsAValueHasIsKnownAndNotCounted) {
  const Value t = table({kFirst, kSecond});
  const Value x = column(t, "x");
  const Value y = column(t, "y");
  gather(x);
  const Value five = host::call("gather", {x.get()});  // a plain value, no longer a column
  const auto error = errorOf([&] { gather(element("plus", five, y)); });
  EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer");
  EXPECT_THAT(error.arguments, ElementsAre("a value in memory (5 rows)", HasSubstr("column y"),
                                           "; a value in memory must have one row"));

  const Value elsewhere = column(table({kFirst, kSecond}), "x");
  gather(elsewhere);
  const Value posing = host::call("createFromFutureBuiltin",
                                  {host::getProperty(elsewhere.get(), "ValueFuture").get(),
                                   host::getProperty(x.get(), "PartitionMetadata").get()});
  EXPECT_THAT(errorOf([&] { gather(element("plus", posing, y)); }).arguments,
              ElementsAre(HasSubstr("column x"), HasSubstr("column y"), ""));

  const Value one = filter(element("eq", x, 4), x);
  const Value other = filter(element("eq", x, 5), y);
  gather(one);
  EXPECT_EQ(errorOf([&] { gather(element("plus", one, other)); }).identifier,
            "KALVEX:array:RowsDiffer");
  EXPECT_EQ(errorOf([&] { gather(element("plus", element("plus", one, 1), other)); }).identifier,
            "KALVEX:array:RowsDiffer");
  gather(other);
  EXPECT_EQ(errorOf([&] { element("plus", one, other); }).identifier, "KALVEX:array:RowsDiffer");
}

TEST_F(Evaluation, TakesItsTimesFromTheClockOfItsContext) {
  const CancellationToken never;
  const ClientPlan nothing;
  const auto now = [] {
    static int seconds = 0;
    return Clock::time_point(std::chrono::seconds(seconds += 5));
  };
  EXPECT_EQ(runtime::Evaluation(nothing, {currentPool(), never, now}).run().seconds, 5);
}

TEST_F(Evaluation, ACompleteReductionIsNotComputedAgain) {
  const Value t = table({kFirst, kSecond});
  const Value mean = aggregate("mean", column(t, "x"));
  EXPECT_THAT(gather(mean), ElementsAre(3));
  const Value centred = element("minus", column(t, "x"), mean);
  EXPECT_THAT(gather(aggregate("max", centred)), ElementsAre(2));
  EXPECT_EQ(fact("passes"), 1);
}

TEST_F(Evaluation, DifferentRowsAreRefusedEvenIfTheirNumbersAgree) {
  const Value t = table({kFirst});
  const Value x = column(t, "x");
  const Value withoutFirst = filter(element("gt", x, 1), x);
  const Value withoutLast = filter(element("lt", x, 3), x);
  const auto error = errorOf([&] { gather(element("plus", withoutFirst, withoutLast)); });
  EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer");
  EXPECT_THAT(error.arguments, ElementsAre(HasSubstr("filter"), HasSubstr("filter"), ""));
  const auto counts = errorOf([&] { gather(element("plus", withoutFirst, x)); });
  EXPECT_THAT(counts.arguments, ElementsAre(HasSubstr("filter"), HasSubstr("column x"), ""));
}

TEST_F(Evaluation, TwoSourcesShareAnEvaluationButNoRows) {
  const Value a = table({kFirst});
  const Value b = table({kSecond});
  const Value sumA = aggregate("sum", column(a, "x"));
  const Value sumB = aggregate("sum", column(b, "x"));
  EXPECT_THAT(gather(element("minus", sumA, sumB)), ElementsAre(-3));
  EXPECT_EQ(fact("rows"), 5);
  EXPECT_EQ(fact("passes"), 1);
  EXPECT_EQ(errorOf([&] { element("plus", column(a, "x"), column(b, "x")); }).identifier,
            "KALVEX:bigdata:array:IncompatibleTallIndexing");
}

TEST_F(Evaluation, AFileThatIsOpenedTwiceKeepsTheTypesOfEach) {
  const std::string path = folder.write("twice.csv", "x\n9\n10\n");
  const auto largest = [&](const char* type) {
    const Value source = host::call("kalvex.io.CsvDatastore",
                                    {host::makeStringColumn(std::vector{path}).get(),
                                     host::makeString("x").get(), host::makeString(type).get()});
    const Value t = host::call("createFromDatastoreBuiltin", {source.get()});
    return aggregate("max", column(t, "x"));
  };
  const Value ofNumbers = largest("int64");
  const Value ofTexts = largest("string");
  const auto values =
      host::callMany("gather", 2, std::vector<const kxArray*>{ofNumbers.get(), ofTexts.get()});
  EXPECT_EQ(kxGetScalar(values[0].get()), 10);
  EXPECT_EQ(host::toText(values[1].get()), "9");
}

TEST_F(Evaluation, ColumnsThatNoResultNeedsAreReadOnlyWithTheRuleOff) {
  const Value t = table({"x,y,z\n1,2,0\n", "x,y,z\n2,not a number,0\n"});
  const auto planOf = [&](const char* name) {
    return host::toText(host::call("kv.explain", {column(t, name).get()}).get());
  };
  const auto failure = [&](const char* name) {
    return errorOf([&] { gather(column(t, name)); }).identifier;
  };
  {
    const kv::test::RulesOff off("-columns");
    EXPECT_THAT(planOf("x"), HasSubstr("3 of 3 columns: x, y, z"));
    EXPECT_EQ(failure("x"), "KALVEX:datastore:BadField");
  }
  for (const char* wrong : {"columns", "-columns,-fuse", ","}) {
    const kv::test::RulesOff off(wrong);
    EXPECT_EQ(failure("x"), "KALVEX:optimizer:UnknownRule");
    EXPECT_EQ(errorOf([&] { planOf("x"); }).identifier, "KALVEX:optimizer:UnknownRule");
  }
  const kv::test::RulesOff none("");
  EXPECT_THAT(planOf("x"), HasSubstr("1 of 3 columns: x\n"));
  EXPECT_THAT(gather(column(t, "x")), ElementsAre(1, 2));
  const Value kept = filter(element("gt", column(t, "x"), 1), t);
  EXPECT_THAT(gather(column(kept, "x")), ElementsAre(2));
  EXPECT_EQ(errorOf([&] { gather(column(t, "y")); }).identifier, "KALVEX:datastore:BadField");
  EXPECT_THAT(gather(column(t, "x")), ElementsAre(1, 2)) << "the session stays usable";
}

TEST_F(Evaluation, AFailingFunctionReportsPartitionAndRowsAndCompletesNothing) {
  const Value t = table({kFirst, kSecond});
  const Value handle = host::makeFunctionHandle("fails on 4", [](const host::Call& call) {
    if (kxGetScalar(call.in(0)) == 4) {
      host::raiseWithMessage("my:error", "four is not for me");
    }
    call.out(0, matrix::sharedCopy(call.in(0)));
  });
  const host::CallSite here(std::source_location::current());
  const Value mapped = host::call("elementfun", {handle.get(), column(t, "x").get()});
  const auto error = errorOf([&] { gather(mapped); });
  EXPECT_EQ(error.identifier, "my:error");
  EXPECT_THAT(error.message, HasSubstr("four is not for me"));
  EXPECT_THAT(error.message, HasSubstr("partition 2, rows 1 to 2"));
  EXPECT_EQ(error.className, "kalvex.bigdata.BigDataException");
  ASSERT_FALSE(error.stack.empty());
  EXPECT_THAT(error.stack.front().file, HasSubstr("EvaluationTest.cpp"));
  const Value future = host::getProperty(mapped.get(), "ValueFuture");
  EXPECT_FALSE(host::toLogical(host::getProperty(future.get(), "IsDone").get()));
}

TEST_F(Evaluation, AFunctionMustReturnAsManyRowsAsItGot) {
  const Value t = table({kFirst});
  const auto mapWith = [&](host::NativeBody body) {
    const Value handle = host::makeFunctionHandle("mine", std::move(body));
    return host::call("elementfun", {handle.get(), column(t, "x").get()});
  };
  const Value one = mapWith([](const host::Call& call) { call.out(0, host::makeDouble(1)); });
  const auto tooFew = errorOf([&] { gather(one); });
  EXPECT_EQ(tooFew.identifier, "KALVEX:array:WrongRowCount");
  EXPECT_THAT(tooFew.arguments, ElementsAre("mine", "3", "1"));
  const Value none = mapWith([](const host::Call&) {});
  EXPECT_EQ(errorOf([&] { gather(none); }).identifier, "KALVEX:array:MissingOutput");
  const Value cell = mapWith([](const host::Call& call) { call.out(0, host::makeCell({})); });
  EXPECT_EQ(errorOf([&] { gather(cell); }).identifier, "KALVEX:array:NotAColumn");
}

TEST_F(Evaluation, AUsersAggregateReducesTheResultsOfItsChunks) {
  const Value t = table({kFirst, kSecond});
  const Value largest = host::makeFunctionHandle("largest", [](const host::Call& call) {
    call.out(0, host::call("kv.aggregate.max", {call.in(0)}));
  });
  const Value total = host::makeFunctionHandle("total", [](const host::Call& call) {
    call.out(0, host::call("kv.aggregate.sum", {call.in(0)}));
  });
  const Value summed =
      host::call("aggregatefun", {largest.get(), total.get(), column(t, "x").get()});
  EXPECT_THAT(gather(summed), ElementsAre(3 + 5));
}

TEST_F(Evaluation, AUserDefinedOperationClassRunsLikeAnyOther) {
  defineDoubling(session);
  const Value x = column(table({kFirst, kSecond}), "x");
  const Value doubled =
      host::call("applyOperationBuiltin", {host::call("mine.Doubling").get(), x.get()});
  EXPECT_THAT(gather(aggregate("sum", doubled)), ElementsAre(30));

  // A class that returns the task of its input, so that two closures share a task.
  host::ClassDefinition alias{.name = "mine.Alias", .superclasses = {"mine.Doubling"}};
  alias.methods.push_back({.name = "createExecutionTasks", .body = [](const host::Call& call) {
                             const kxArray* input = kxGetCell(call.in(1), 0);
                             call.out(0, matrix::sharedCopy(kxGetCell(input, 0)));
                           }});
  session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(alias)));
  const Value tripled = element("times", x, 3);
  const Value same =
      host::call("applyOperationBuiltin", {host::call("mine.Alias").get(), tripled.get()});
  EXPECT_THAT(gather(element("plus", same, tripled)), ElementsAre(6, 12, 18, 24, 30));
  EXPECT_THAT(gather(same), ElementsAre(3, 6, 9, 12, 15));

  host::ClassDefinition idle{.name = "mine.Idle", .superclasses = {"mine.Doubling"}};
  idle.methods.push_back({.name = "createExecutionTasks", .body = [](const host::Call&) {}});
  session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(idle)));
  const Value lost =
      host::call("applyOperationBuiltin", {host::call("mine.Idle").get(), tripled.get()});
  EXPECT_THAT(errorOf([&] { gather(lost); }).arguments,
              ElementsAre("createExecutionTasks of mine.Idle gave no task"));
}

TEST_F(Evaluation, ATaskInSeveralGraphsBelongsInEachToTheClosuresPlannedThere) {
  defineDoubling(session);
  const Value x = column(table({kFirst, kSecond}), "x");
  gather(x);
  Value kept;
  host::ClassDefinition keeping{.name = "mine.Keeping", .superclasses = {"mine.Doubling"}};
  keeping.methods.push_back(
      {.name = "createExecutionTasks", .body = [&](const host::Call& call) {
         const auto makeTask = [](const kxArray* dependencies) {
           const Value factory = host::call("mine.DoublingFactory");
           const Value one = host::makeDouble(1);
           return host::call(
               "kalvex.bigdata.internal.executor.ExecutionTask",
               {dependencies, factory.get(), host::makeEmptyDouble().get(), one.get()});
         };
         if (kept == nullptr) {
           kept = makeTask(call.in(1));
           call.out(0, matrix::sharedCopy(kept.get()));
           return;
         }
         std::vector<Value> input;
         input.push_back(matrix::sharedCopy(kept.get()));
         input.push_back(host::makeDouble(1));
         std::vector<Value> inputs;
         inputs.push_back(host::makeCell(std::move(input)));
         const Value again = makeTask(host::makeCell(std::move(inputs)).get());
         Value both = matrix::from_kalvex(kcos::omCreateKCOSMatrix(
             2, 1, kcos::internal::makeInterned("kalvex.bigdata.internal.executor.ExecutionTask")));
         kcos::omSetArrayElement(both.get(), 0, kcos::omGetArrayElement(kept.get(), 0));
         kcos::omSetArrayElement(both.get(), 1, kcos::omGetArrayElement(again.get(), 0));
         call.out(0, std::move(both));
       }});
  session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(keeping)));
  const Value array =
      host::call("applyOperationBuiltin", {host::call("mine.Keeping").get(), x.get()});
  const Value promise =
      host::getProperty(host::getProperty(array.get(), "ValueFuture").get(), "Promise");
  const Value closure = host::getProperty(promise.get(), "Closure");
  host::call("kalvex.bigdata.internal.lazyeval.LazyTaskGraph", {closure.get()});  // and dropped
  EXPECT_THAT(gather(array), ElementsAre(4, 8, 12, 16, 20));
}

TEST_F(Evaluation, ABroadcastArrayIsSeenWholeByEveryPartition) {
  const Value t = table({kFirst, kSecond});
  const Value total = aggregate("sum", column(t, "x"));
  const Value wrapped = host::call("kalvex.bigdata.internal.BroadcastArray", {total.get()});
  const Value share = host::makeFunctionHandle("share", [](const host::Call& call) {
    const Value whole = host::getProperty(call.in(1), "Value");
    call.out(0, host::call("kv.element.rdivide", {call.in(0), whole.get()}));
  });
  const Value shares = host::call("clientfun", {share.get(), column(t, "x").get(), wrapped.get()});
  EXPECT_THAT(gather(shares), ElementsAre(1 / 15., 2 / 15., 3 / 15., 4 / 15., 5 / 15.));
}

TEST_F(Evaluation, ASourceWithoutRowsHasResultsToo) {
  const Value t = table({"x,name\n"});
  EXPECT_THAT(gather(aggregate("count", column(t, "x"))), ElementsAre(0));
  EXPECT_TRUE(std::isnan(gather(aggregate("mean", column(t, "x"))).at(0)));
  EXPECT_THAT(gather(element("plus", column(t, "x"), 1)), ElementsAre());
}

TEST_F(Evaluation, AnInterruptEndsItAndTheNextOneRuns) {
  const Value x = column(table({kFirst}), "x");
  requestInterrupt();
  EXPECT_THROW(gather(x), Interrupted);
  EXPECT_THAT(gather(x), ElementsAre(1, 2, 3));
}

TEST_F(Evaluation, OnlyTheThreadThatEvaluatesPollsTheWatch) {
  struct Counting final : EvaluationWatch {
    void poll() override { ++polls; }
    int polls = 0;
  } watch;
  InterruptRequests process;
  InterruptRequests own;
  const CancellationToken token(process, own, &watch);
  token.throwIfCancelled();
  std::thread([&] { token.throwIfCancelled(); }).join();
  EXPECT_EQ(watch.polls, 1);
  own.add();
  std::thread([&] { EXPECT_THROW(token.throwIfCancelled(), Cancelled); }).join();
}

TEST_F(Evaluation, OperationsRefuseUnsupportedInputs) {
  const Value t = table({kFirst});
  const Value x = column(t, "x");
  EXPECT_EQ(errorOf([&] { host::call("filterslices", {x.get()}); }).identifier,
            "KALVEX:NotEnoughInputs");
  const Value row = host::makeDouble(1);
  const Value name = host::makeChars("x");
  const Value content = host::makeLogical(true);
  EXPECT_EQ(errorOf([&] {
              host::call("subsrefTabularVar", {row.get(), name.get(), content.get(), t.get()});
            }).identifier,
            "KALVEX:array:RowSubscript");
  EXPECT_EQ(errorOf([&] { gather(element("plus", t, 1)); }).identifier, "KALVEX:array:NeedsColumn");
  EXPECT_EQ(errorOf([&] { gather(column(x, "x")); }).identifier, "KALVEX:array:NeedsTable");
  const host::ErrorRecord unknown = errorOf([&] { gather(column(t, "z")); });
  EXPECT_EQ(unknown.identifier, "KALVEX:array:UnknownColumn");
  EXPECT_THAT(unknown.message, HasSubstr("There is no column 'z'. The columns are: x, y."));
  const Value all = element("ge", x, 0);
  const Value filtered = host::call("filterslices", {all.get(), row.get()});
  EXPECT_EQ(errorOf([&] { gather(filtered); }).identifier, "KALVEX:array:NeedsRows");
  gather(all);
  EXPECT_EQ(errorOf([&] { gather(filtered); }).identifier, "KALVEX:array:NeedsRows");
}

}  // namespace
}  // namespace kv::runtime::test
