#include <gmock/gmock.h>
#include <kv/callMode.h>
#include <kv/describe.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <source_location>
#include <stdexcept>
#include <thread>

#include "array/ArrayTest.h"
#include "kv/host/session.h"

namespace kv::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Gather = ArrayTest;

/// A table with a row that is too short, far beyond what is read to infer the types.
const std::string kRaggedLate = [] {
  std::string rows = "x,y\n";
  for (int i = 0; i < 1'000'000; ++i) {
    rows += "1,2\n";
  }
  return rows + "3\n";
}();

std::string flightsPath() { return std::string(std::getenv("KV_DATA")) + "/flights.csv"; }

// The answers were computed with Arrow from the same file.
TEST_F(Gather, AnswersSeveralQuestionsAboutFlightsInOnePass) {
  const Table flights = session.read(flightsPath());
  const Array delay = flights.column("dep_delay");
  const Table jfk = flights.filter(flights.column("origin") == "JFK");
  const std::vector<Array> questions = {mean(delay),
                                        kv::std(delay),
                                        count(delay),
                                        sum(flights.column("distance")),
                                        mean(flights.column("arr_delay") > 60),
                                        count(jfk.column("year")),
                                        mean(jfk.column("dep_delay"))};

  const auto [values, facts] = session.gather(questions);

  EXPECT_DOUBLE_EQ(values[0].number(), 12.639070257304708);
  EXPECT_DOUBLE_EQ(values[1].number(), 40.21006089212995);
  EXPECT_EQ(values[2].number(), 328'521);
  EXPECT_EQ(values[3].number(), 350'217'607);
  EXPECT_DOUBLE_EQ(values[4].number(), 0.08251478727700311);
  EXPECT_EQ(values[5].number(), 111'279);
  EXPECT_DOUBLE_EQ(values[6].number(), 12.112159099217665);
  EXPECT_EQ(facts.rows, 336'776);
  EXPECT_EQ(facts.passes, 1);
}

TEST_F(Gather, TakesAsManyPassesAsAnswersDependOnEachOther) {
  const Array x = read("x\n1\n2\n3\n4\n").column("x");
  const Array centred = x - mean(x);
  const Array scaled = centred / kv::std(centred);

  const auto [values, facts] = session.gather(std::vector{mean(scaled), kv::std(scaled)});

  EXPECT_NEAR(values[0].number(), 0, 1e-15);
  EXPECT_NEAR(values[1].number(), 1, 1e-15);
  EXPECT_EQ(facts.passes, 3);
}

TEST_F(Gather, DoesNotRecomputeCompletedValues) {
  const Array x = read("x\n1\n2\n").column("x");
  const Array total = sum(x);
  EXPECT_EQ(number(total), 3);
  EXPECT_EQ(session.gather(std::vector{total}).facts.passes, 0);
  EXPECT_EQ(number(sum(x - total)), -3);
}

TEST_F(Gather, FiltersRowsOfTablesAndArraysAlike) {
  const Table table = read("x,y\n1,10\n2,20\n3,30\n");
  const Array keep = table.column("x") != 2;
  EXPECT_THAT(numbers(filter(table.column("y"), keep)), ElementsAre(10, 30));
  EXPECT_THAT(numbers(table.filter(keep).column("y")), ElementsAre(10, 30));
  EXPECT_THAT(numbers(filter(table.column("y"), keep) + filter(table.column("x"), keep)),
              ElementsAre(11, 33));
  EXPECT_THAT(numbers(filter(table.column("y"), table.column("x") > 9)), ElementsAre());
}

TEST_F(Gather, RefusesInputsWhoseRowsDontMatch) {
  const Array x = read("x\n1\n2\n3\n").column("x");
  const Array above = filter(x, x > 1);
  for (const bool isGathered : {false, true}) {
    const Error error = errorOf([&] { x + above; });
    EXPECT_EQ(error.identifier(), "KALVEX:array:RowsDiffer") << isGathered;
    EXPECT_THAT(error.stack().front().file, testing::EndsWith("GatherTest.cpp"));
    EXPECT_THAT(error.what(), testing::HasSubstr("filtered by the condition recorded"));
    EXPECT_EQ(errorOf([&] { filter(above, x > 1); }).identifier(), "KALVEX:array:RowsDiffer");
    EXPECT_THAT(numbers(above + filter(x, x > 1)), ElementsAre(4, 6)) << "the same condition";
    above.gather();
  }
  const Array other = session.read(folder.write("other.csv", "x\n1\n2\n3\n")).column("x");
  EXPECT_EQ(errorOf([&] { x + other; }).identifier(), "KALVEX:array:DifferentSources");
  EXPECT_EQ(number(sum(x)), 6) << "the session stays usable";
}

TEST_F(Gather, CountsRowsOnRequest) {
  const Array x = read("x\n1\nNA\n3\n").column("x");
  const Array above = filter(x, x > 1);
  EXPECT_EQ(x.rows(), std::nullopt);
  EXPECT_EQ(number(countRows(x)), 3);
  settle(x);
  EXPECT_EQ((x + 1).rows(), 3);
  EXPECT_EQ(above.rows(), std::nullopt);
  above.gather();
  EXPECT_EQ((above * 2).rows(), 1);
  const Table table = tableOf(std::vector<NamedArray>{{"x", x}, {"twice", x * 2}});
  EXPECT_THAT(numbers(table.filter(x > 1).column("twice")), ElementsAre(6));
  EXPECT_EQ(errorOf([&] {
              tableOf(std::vector<NamedArray>{{"x", x}, {"x", x}});
            }).identifier(),
            "KALVEX:array:SameName");
}

TEST_F(Gather, ReportsWhatIsWrongWithAFile) {
  EXPECT_EQ(errorOf([&] { session.read(folder.path("gone.csv")); }).identifier(),
            "KALVEX:datastore:FileNotFound");
  const Array x = read(kRaggedLate).column("x");
  const Error error = errorOf([&] { x.gather(); });
  EXPECT_EQ(error.identifier(), "KALVEX:datastore:RaggedRow");
  EXPECT_THAT(error.what(), HasSubstr("table.csv"));
  EXPECT_EQ(error.place().partition, 1);
  EXPECT_FALSE(error.place().firstRow || error.place().lastRow);
}

TEST_F(Gather, ExplainsAPlanWithoutReading) {
  const Table table = read(kRaggedLate);
  const std::string plan = session.explain(std::vector{mean(table.column("x"))});
  EXPECT_THAT(plan, HasSubstr("mean"));
  EXPECT_THAT(plan, HasSubstr("table.csv"));
}

using Map = ArrayTest;

TEST_F(Map, RunsTheUsersFunctionOnBlocksOfEquallyLongInputs) {
  const Table table = read("x,b\n1,true\n2,false\n3,true\n", {{{"b", "logical"}}});
  const Array x = table.column("x");
  const auto weigh = [](std::span<const std::span<const double>> in) {
    std::vector<double> out;
    for (std::size_t i = 0; i < in[0].size(); ++i) {
      out.push_back(in[0][i] * in[1][i] + in[2][i]);
    }
    return out;
  };
  const Array result = map(weigh, std::vector{x, table.column("b"), mean(x)});
  EXPECT_THAT(numbers(result), ElementsAre(3, 2, 5));
  EXPECT_EQ(result.type(), "double");
}

TEST_F(Map, AFailureComesBackOnceWithTheLineThatMadeTheArray) {
  const Array x = read("x\n1\n2\n").column("x");
  const auto fail = [](auto) -> std::vector<double> {
    throw Error("MYLAB:sensor:Broken", "sensor 7 is broken", {"7"});
  };
  const std::source_location here = std::source_location::current();
  const Array bad = map(fail, std::vector{x});
  const Error error = errorOf([&] { sum(bad + 1).gather(); });

  EXPECT_EQ(error.identifier(), "MYLAB:sensor:Broken");
  EXPECT_THAT(error.what(), HasSubstr("sensor 7 is broken"));
  const auto isHere = [&](const StackFrame& frame) {
    return frame.file == here.file_name() && frame.line == static_cast<int>(here.line()) + 1;
  };
  EXPECT_EQ(std::ranges::count_if(error.stack(), isHere), 1);
  EXPECT_EQ(number(sum(x)), 3) << "the session stays usable";
}

TEST_F(Map, OtherFailuresKeepTheirText) {
  const Array x = read("x\n1\n2\n").column("x");
  const auto fail = [](auto) -> std::vector<double> { throw std::runtime_error("out of ink"); };
  const auto tooFew = [](auto) { return std::vector<double>{1}; };
  const Error error = errorOf([&] { map(fail, std::vector{x}).gather(); });
  EXPECT_EQ(error.identifier(), "KALVEX:array:FunctionFailed");
  EXPECT_THAT(error.what(), HasSubstr("kv.map failed: out of ink"));
  EXPECT_EQ(errorOf([&] { map(tooFew, std::vector{x}).gather(); }).identifier(),
            "KALVEX:array:WrongRowCount");
  EXPECT_EQ(errorOf([&] { map(tooFew, std::vector<Array>{}); }).identifier(),
            "KALVEX:array:NoArray");
}

class Lifetime : public testing::Test {
 protected:
  host::Ledger before = host::ledger();
};

TEST_F(Lifetime, ArraysMayOutliveTheirSessionAndBeDroppedOnAnyThread) {
  TempFolder folder;
  auto session = std::make_unique<Session>();
  std::optional<Table> table = session->read(folder.write("t.csv", "x\n1\n2\n"));
  std::optional<Array> x = table->column("x");
  std::optional<Array> total = sum(*x + 1);
  std::thread([&] { total.reset(); }).join();
  EXPECT_EQ(x->gather().number(1), 2);

  session.reset();
  EXPECT_EQ(errorOf([&] { x->gather(); }).identifier(), "KALVEX:session:Closed");
  EXPECT_EQ(errorOf([&] { *x + 1; }).identifier(), "KALVEX:session:Closed");
  EXPECT_EQ(errorOf([&] { table->column("x"); }).identifier(), "KALVEX:session:Closed");
  std::thread([&] { x.reset(); }).join();
  table.reset();

  const host::Ledger after = host::ledger();
  EXPECT_EQ(after.objects, before.objects);
  EXPECT_EQ(after.arrays, before.arrays);
  EXPECT_EQ(after.payloadBytes, before.payloadBytes);
}

/// Returns the rows unchanged, after `atBlock`.
BlockFunction passing(std::function<void()> atBlock) {
  return [atBlock](std::span<const std::span<const double>> in) {
    atBlock();
    return std::vector<double>(in[0].begin(), in[0].end());
  };
}

TEST_F(Lifetime, ThreadsMayShareASession) {
  std::string rows = "x\n";
  for (int i = 0; i < 40'000; ++i) {
    rows += std::to_string(i % 10) + "\n";
  }
  TempFolder folder;
  Session session;
  const Array x =
      session.read({folder.write("a.csv", rows), folder.write("b.csv", rows)}).column("x");
  const Array common = mean(x * x);
  std::atomic<int> running = 0;
  const auto alone = [&] {
    EXPECT_EQ(++running, 1) << "calls of functions have the session for themselves";
    --running;
  };
  const auto share = [&](int thread) {
    for (int i = 0; i < 4; ++i) {
      const Array mine = x + thread;
      EXPECT_EQ(sum(map(passing(alone), std::vector{mine})).gather().number(),
                80'000 * (4.5 + thread));
      EXPECT_EQ(common.gather().number(), 28.5);
      const auto line = std::source_location::current().line() + 1;
      const Array failing = map(passing([] { throw std::runtime_error("no"); }), std::vector{mine});
      const Error error = errorOf([&] { (i % 2 == 0 ? sum(failing) : failing).gather(); });
      ASSERT_FALSE(error.stack().empty());
      EXPECT_EQ(error.stack()[0].line, static_cast<int>(line)) << "the line of another thread";
    }
  };
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back(share, thread);
  }
}

TEST_F(Lifetime, AFunctionOnAnyThreadMayGather) {
  std::string rows = "x\n";
  for (int i = 0; i < 100'000; ++i) {
    rows += "1\n";
  }
  TempFolder folder;
  Session session;
  session.setThreads(2);
  const Array x =
      session.read({folder.write("a.csv", rows), folder.write("b.csv", rows)}).column("x");
  const std::thread::id caller = std::this_thread::get_id();
  const auto nested = [&](std::span<const std::span<const double>> in) {
    EXPECT_NE(std::this_thread::get_id(), caller);
    return std::vector<double>(in[0].size(), mean(x + 1).gather().number());
  };
  EXPECT_EQ(sum(map("nested", nested, std::vector{x}, CallMode::AnyThread)).gather().number(),
            400'000);
  // An evaluation in the lane keeps the session, so the functions that it calls run there.
  const auto outer = [&](std::span<const std::span<const double>> in) {
    const auto inner = [&](std::span<const std::span<const double>> block) {
      return std::vector<double>(block[0].size(), mean(x + 1).gather().number());
    };
    const Array nestedInLane = max(map("inner", inner, std::vector{x}, CallMode::AnyThread));
    return std::vector<double>(in[0].size(), nestedInLane.gather().number());
  };
  EXPECT_EQ(max(map(outer, std::vector{x})).gather().number(), 2);
  const auto failing = passing([] { throw std::runtime_error("no"); });
  const auto error = [&](CallMode mode) {
    return errorOf([&] { sum(map("failing", failing, std::vector{x}, mode)).gather(); });
  };
  const Error lane = error(CallMode::Session);
  const Error free = error(CallMode::AnyThread);
  EXPECT_STREQ(free.what(), lane.what());
  EXPECT_EQ(free.identifier(), lane.identifier());
  EXPECT_EQ(free.stack().at(0).line, lane.stack().at(0).line);
}

TEST_F(Lifetime, AnInterruptAtAnyChunkStopsWithinOneAndLeavesTheSessionUsable) {
  constexpr int kBlocks = 8;  // four in each of two files
  std::string rows = "x\n";
  for (int i = 0; i < 100'000; ++i) {
    rows += "1\n";
  }
  int latest = 0;
  {
    TempFolder folder;
    Session session;
    const Array x =
        session.read({folder.write("a.csv", rows), folder.write("b.csv", rows)}).column("x");
    for (int k = 1; k <= kBlocks; ++k) {
      int begun = 0;
      const auto stop = [&] {
        if (++begun == k) {
          k % 2 == 0 ? interrupt() : session.interrupt();
        }
      };
      EXPECT_THROW(sum(map(passing(stop), std::vector{x})).gather(), Interrupted);
      EXPECT_EQ(begun, k) << "no chunk begins after an interrupt that the evaluation's thread made";

      std::atomic<int> blocks = 0;
      int atRequest = 0;
      std::jthread other([&] {
        while (blocks < k) {
          std::this_thread::yield();
        }
        session.interrupt();
        atRequest = blocks;
      });
      const auto count = [&] {
        ++blocks;
        while (blocks == kBlocks && other.joinable()) {
          other.join();  // it arrives before the end
        }
      };
      EXPECT_THROW(sum(map(passing(count), std::vector{x})).gather(), Interrupted);
      if (other.joinable()) {
        other.join();
      }
      latest = std::max(latest, blocks - atRequest);
    }
    EXPECT_EQ(sum(x).gather().number(), 200'000);
  }
  RecordProperty("latencyInChunks", latest);
  EXPECT_LE(latest, 1);
  EXPECT_EQ(host::ledger().objects, before.objects);
  EXPECT_EQ(host::ledger().arrays, before.arrays);
}

TEST_F(Lifetime, AnInterruptOfASessionIsItsOwn) {
  TempFolder folder;
  const std::string path = folder.write("t.csv", "x\n1\n2\n");
  Session one;
  Session two;
  const Array x = one.read(path).column("x");
  const Array y = two.read(path).column("x");
  two.interrupt();
  EXPECT_EQ(sum(x + 1).gather().number(), 5) << "the end of one leaves the other's request alone";
  EXPECT_THROW(sum(y).gather(), Interrupted);
  EXPECT_EQ(sum(y).gather().number(), 3);

  interrupt();  // nothing is running: only the next one stops
  EXPECT_THROW(sum(x + 2).gather(), Interrupted);
  EXPECT_EQ(sum(y + 2).gather().number(), 7);
  const auto inner = [&] {
    interrupt();
    EXPECT_THROW(sum(y + 3).gather(), Interrupted);
  };
  EXPECT_THROW(sum(map(passing(inner), std::vector{x})).gather(), Interrupted)
      << "the end of an inner evaluation doesn't clear the request";
  EXPECT_EQ(sum(x + 4).gather().number(), 11);
  x.gather();
  interrupt();
  EXPECT_THROW(x + 5, Interrupted) << "on available rows it is computed at once";
}

TEST_F(Lifetime, AFailedEvaluationLeavesNothingBehind) {
  {
    Session session;
    const Array one = session.constant(1);
    const auto fail = [](auto) -> std::vector<double> { throw std::runtime_error("no"); };
    EXPECT_THROW(map(fail, std::vector{one}).gather(), Error);
  }
  EXPECT_EQ(host::ledger().objects, before.objects);
  EXPECT_EQ(host::ledger().arrays, before.arrays);
}

TEST(Describe, ShowsClassesAsTheyWereRegistered) {
  Session session;
  const std::vector<std::string> names = classNames(session);
  ASSERT_THAT(names, testing::Contains("kalvex.bigdata.internal.InternalStackFrame"));
  const ClassDescription frame = describe(session, "kalvex.bigdata.internal.InternalStackFrame");
  ASSERT_EQ(frame.members.size(), 2U);
  EXPECT_EQ(frame.members[0].kind, "constructor");
  EXPECT_EQ(frame.members[1].inputs, 1);
  EXPECT_TRUE(frame.isNative);
  EXPECT_EQ(errorOf([&] { describe(session, "no.such.Class"); }).identifier(),
            "KALVEX:UndefinedFunction");
}

}  // namespace
}  // namespace kv::test
