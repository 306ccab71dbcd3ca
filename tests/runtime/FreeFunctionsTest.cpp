#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kv/host/freeFunctions.h"
#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

using host::CallMode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class FreeFunctions : public RuntimeSession {
 protected:
  FreeFunctions() { setThreads(4); }

  /// Eight files of two pieces each: 100 in every row of the first, 200 of the second ...
  Value manyPieces() {
    std::vector<std::string> paths;
    for (int file = 1; file <= 8; ++file) {
      std::string text = "x\n";
      for (int row = 0; row < 40'000; ++row) {
        text += std::to_string(file) + "00\n";
      }
      paths.push_back(folder.write("m" + std::to_string(file) + ".csv", text));
    }
    const Value source =
        host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
    return column(host::call("createFromDatastoreBuiltin", {source.get()}), "x");
  }

  static Value map(CallMode mode, host::NativeBody body, const std::vector<const Value*>& inputs) {
    const Value handle = host::makeFunctionHandle("free", std::move(body), mode);
    std::vector<const kxArray*> arguments{handle.get()};
    for (const Value* input : inputs) {
      arguments.push_back(input->get());
    }
    return host::call("elementfun", arguments);
  }

  static void plus(const host::Call& call, const kxArray* addend) {
    call.out(0, host::call("kv.element.plus", {call.in(0), addend}));
  }

  static constexpr double kSum = 40'000.0 * 3600;
};

TEST_F(FreeFunctions, RunOnSeveralThreadsAtOnceWithTheSameAnswers) {
  const Value x = manyPieces();
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> inside = 0;
  std::atomic<bool> hasOverlapped = false;
  const auto body = [&](const host::Call& call) {
    ++inside;
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!hasOverlapped && std::chrono::steady_clock::now() < end) {
      hasOverlapped = hasOverlapped || inside > 1;
    }
    {
      const std::lock_guard lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    plus(call, call.in(1));
    --inside;
  };
  const Value one = host::makeDouble(1);
  const Value free = map(CallMode::AnyThread, body, {&x, &one});
  EXPECT_THAT(host::toText(host::call("kv.explain", {free.get()}).get()),
              HasSubstr("called on the workers"));
  EXPECT_THAT(gather(aggregate("sum", free)), ElementsAre(kSum + 320'000));
  EXPECT_TRUE(hasOverlapped);
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));

  setThreads(1);
  EXPECT_THAT(gather(aggregate("sum", map(CallMode::AnyThread, body, {&x, &one}))),
              ElementsAre(kSum + 320'000));
}

TEST_F(FreeFunctions, FindWhatTheProgramHasDefined) {
  session.defineFunction("mine.more", [](const host::Call& call) {
    const Value doubling = host::call("mine.Doubling");
    EXPECT_TRUE(kxIsA(doubling.get(), "mine.Doubling"));
    plus(call, call.in(1));
  });
  defineDoubling(session);
  const Value x = manyPieces();
  const Value two = host::makeDouble(2);
  const auto body = [](const host::Call& call) {
    call.out(0, host::call("mine.more", {call.in(0), call.in(1)}));
  };
  EXPECT_THAT(gather(aggregate("sum", map(CallMode::AnyThread, body, {&x, &two}))),
              ElementsAre(kSum + 640'000));
  session.defineFunction("mine.more", [](const host::Call& call) { plus(call, call.in(0)); });
  EXPECT_THAT(gather(aggregate("sum", map(CallMode::AnyThread, body, {&x, &two}))),
              ElementsAre(2 * kSum));
}

TEST_F(FreeFunctions, MayEvaluateInTheirOwnSession) {
  const std::string path = folder.write("other.csv", "x\n1\n2\n");
  const auto body = [path](const host::Call& call) {
    const Value source = host::call("kalvex.io.CsvDatastore", {host::makeChars(path).get()});
    const Value y = column(host::call("createFromDatastoreBuiltin", {source.get()}), "x");
    plus(call, host::makeDouble(gather(aggregate("sum", y))[0]).get());
  };
  const Value x = manyPieces();
  EXPECT_THAT(gather(aggregate("sum", map(CallMode::AnyThread, body, {&x}))),
              ElementsAre(kSum + 3 * 320'000));
}

TEST_F(FreeFunctions, ShareValuesInSessionsThatEndWithTheEvaluation) {
  const Value x = manyPieces();
  gather(aggregate("sum", x));
  session.collect();
  const std::size_t objects = host::ledger().objects;
  const std::size_t payloadBytes = host::ledger().payloadBytes;
  {
    const Value many = matrix::from_kalvex(kxCreateDoubleMatrix(1, 1'000'000, 0));
    const void* const data = kxGetData(many.get());
    std::atomic<bool> isShared = true;
    std::atomic<std::size_t> mostObjects = 0;
    std::atomic<std::size_t> mostBytes = 0;
    const auto body = [&](const host::Call& call) {
      isShared = isShared && kxGetData(call.in(1)) == data;
      mostObjects = std::max(mostObjects.load(), host::ledger().objects);
      mostBytes = std::max(mostBytes.load(), host::ledger().payloadBytes);
      plus(call, host::makeDouble(static_cast<double>(kxGetN(call.in(1)))).get());
    };
    std::vector<Value> elements;
    elements.push_back(matrix::sharedCopy(many.get()));
    const Value wrapped = host::makeCell(std::move(elements));
    const auto inCell = [&](const host::Call& call) {
      const Value same = matrix::sharedCopy(kxGetCell(call.in(1), 0));
      isShared = isShared && kxGetData(same.get()) == data;
      plus(call, host::makeDouble(0).get());
    };
    EXPECT_THAT(gather(aggregate("sum", map(CallMode::AnyThread, body, {&x, &many}))),
                ElementsAre(kSum + 320'000e6));
    EXPECT_THAT(gather(aggregate("sum", map(CallMode::AnyThread, inCell, {&x, &wrapped}))),
                ElementsAre(kSum));
    EXPECT_TRUE(isShared);
    EXPECT_GT(mostObjects, objects);
    EXPECT_LT(mostBytes, payloadBytes + 2 * 8'000'000);
  }
  session.collect();
  EXPECT_EQ(host::ledger().objects, objects);
  EXPECT_EQ(host::ledger().payloadBytes, payloadBytes);
}

TEST_F(FreeFunctions, FailAsInTheLane) {
  const Value x = manyPieces();
  const auto errorIn = [&](CallMode mode) {
    const auto body = [](const host::Call& call) {
      if (kxGetScalar(call.in(0)) >= 300) {
        host::raiseWithMessage("my:error", "too much");
      }
      call.out(0, matrix::sharedCopy(call.in(0)));
    };
    return errorOf([&] { gather(aggregate("sum", map(mode, body, {&x}))); });
  };
  const host::ErrorRecord lane = errorIn(CallMode::Session);
  EXPECT_THAT(lane.message, HasSubstr("partition 3, rows 1 to 32768"));
  for (int i = 0; i < 5; ++i) {
    const host::ErrorRecord free = errorIn(CallMode::AnyThread);
    EXPECT_EQ(free.identifier, "my:error");
    EXPECT_EQ(free.message, lane.message);
    EXPECT_EQ(free.stack.size(), lane.stack.size());
  }
  for (const bool fails : {false, true}) {
    const auto interrupting = [fails](const host::Call& call) {
      requestInterrupt();
      if (fails) {
        host::raiseWithMessage("my:error", "interrupted, too");
      }
      call.out(0, matrix::sharedCopy(call.in(0)));
    };
    EXPECT_THROW(gather(aggregate("sum", map(CallMode::AnyThread, interrupting, {&x}))),
                 Interrupted);
  }
  EXPECT_THAT(gather(aggregate("sum", x)), ElementsAre(kSum));
}

TEST_F(FreeFunctions, RunInTheLaneWhereTheyTakeAnObject) {
  const Value x = manyPieces();
  const std::thread::id caller = std::this_thread::get_id();
  const auto body = [caller](const host::Call& call) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    plus(call, host::getProperty(call.in(1), "Seed").get());
  };
  const Value seed = host::makeDouble(5);
  const Value object = host::call("kalvex.bigdata.internal.RandStreamFactory", {seed.get()});
  const Value inLane = map(CallMode::AnyThread, body, {&x, &object});
  EXPECT_THAT(gather(aggregate("sum", inLane)), ElementsAre(kSum + 5 * 320'000));
  for (const Value& array : {map(CallMode::AnyThread, body, {&x, &object}),
                             map(CallMode::Session, body, {&x, &object})}) {
    EXPECT_THAT(host::toText(host::call("kv.explain", {array.get()}).get()),
                HasSubstr("called in the lane"));
  }
}

TEST_F(FreeFunctions, ValuesAreCarriedWithTheirContent) {
  std::vector<Value> elements;
  elements.push_back(host::makeString("text"));
  elements.push_back(host::makeFunctionHandle("kv.element.plus"));
  elements.push_back(host::makeCell({}));
  const Value cell = host::makeCell(std::move(elements));
  ASSERT_TRUE(host::isCarryable(cell.get()));
  host::Session other;
  {
    const host::Session::Scope inOther(other);
    const Value carried = host::carry(cell.get());
    EXPECT_EQ(host::toText(kxGetCell(carried.get(), 0)), "text");
    EXPECT_EQ(host::functionName(kxGetCell(carried.get(), 1)), "kv.element.plus");
    EXPECT_EQ(kxGetNumberOfElements(kxGetCell(carried.get(), 2)), 0u);
  }
  const Value callable = host::makeFunctionHandle("mine", [](const host::Call&) {});
  EXPECT_FALSE(host::isCarryable(callable.get()));
  EXPECT_FALSE(host::isCarryable(host::call("RandStream", {host::makeDouble(1).get()}).get()));
}

}  // namespace

}  // namespace kv::runtime::test
