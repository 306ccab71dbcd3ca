#include "LazySession.h"
#include "ki/createManagedObject.h"

namespace bigdata::lazyeval {

namespace {

constexpr auto kPromiseClass = "kalvex.bigdata.internal.lazyeval.ClosurePromise";
constexpr auto kComplete = "Attempted to complete a ClosurePromise that is already complete.";
constexpr auto kLower =
    "Attempted to remove the partition independent flag on a ClosurePromise that is already "
    "complete.";

class ClosurePromiseTest : public LazySession {
 protected:
  /// "pending", "done", then "independent" or "dependent", then whether the closure is still there.
  std::string stateOf(const PromisePtr& promise) {
    return std::string(promise->isDone() ? "done" : "pending") +
           (promise->isPartitionIndependent() ? " independent" : " dependent") +
           (promise->getClosure() ? " kept" : " cut");
  }

  std::string step(const PromisePtr& promise, const std::string& event) {
    const Value object = ki::toArray(promise);
    const auto invoke = [&](std::string_view method, const Value& input) {
      const kxArray* inputs[] = {input.get()};
      return errorOf([&] { session.invoke(object.get(), method, 0, inputs); });
    };
    if (event == "value") return invoke("setValue", kv::host::makeDouble(5));
    return invoke("setPartitionIndependent", kv::host::makeLogical(event == "raise"));
  }
};

TEST_F(ClosurePromiseTest, GoesThroughItsStates) {
  struct Step {
    std::string event, error, state;
  };
  const std::string none = "no error";
  const std::vector<std::vector<Step>> stories = {
      {{"value", none, "done independent cut"},
       {"value", internalError(kComplete), "done independent cut"},
       {"lower", internalError(kLower), "done independent cut"},
       {"raise", none, "done independent cut"}},
      {{"lower", none, "pending dependent kept"},
       {"raise", none, "pending independent kept"},
       {"lower", none, "pending dependent kept"},
       {"value", none, "done dependent kept"},
       {"value", internalError(kComplete), "done dependent kept"},
       {"lower", internalError(kLower), "done dependent kept"},
       {"raise", none, "done independent cut"}}};
  for (const auto& story : stories) {
    const PromisePtr promise = this->promise(closure({}));
    EXPECT_EQ(stateOf(promise), "pending independent kept");
    for (const Step& step : story) {
      SCOPED_TRACE(step.event);
      EXPECT_EQ(this->step(promise, step.event), step.error);
      EXPECT_EQ(stateOf(promise), step.state);
    }
  }
}

TEST_F(ClosurePromiseTest, KeepsItsFirstValueAndShowsItThroughTheFuture) {
  const PromisePtr promise = this->promise(closure({}));
  const Value future = ki::toArray(promise->getFuture());
  EXPECT_FALSE(getFlag(future, "IsDone"));
  EXPECT_EQ(get(future, "Value"), nullptr);

  promise->setValue(kv::host::makeDouble(5));
  errorOf([&] { promise->setValue(kv::host::makeDouble(6)); });
  EXPECT_TRUE(getFlag(future, "IsDone"));
  EXPECT_EQ(getDouble(future, "Value"), 5);
}

TEST_F(ClosurePromiseTest, MadeFromAValueIsCompleteAndHasNoClosure) {
  const Value value = kv::host::makeString("ready");
  const Value promise = callWith(kPromiseClass, {value.get()});
  EXPECT_TRUE(getFlag(promise, "IsDone"));
  EXPECT_TRUE(getFlag(promise, "IsPartitionIndependent"));
  EXPECT_EQ(getDouble(promise, "ArgoutIndex"), 0);
  EXPECT_EQ(get(promise, "Closure"), nullptr);
  EXPECT_EQ(kv::host::toText(get(promise, "CachedValue").get()), "ready");
}

TEST_F(ClosurePromiseTest, CutsOnlyItsOwnLinkToTheClosure) {
  const ClosurePtr closure = this->closure({}, 2);
  promise(closure, 0)->setValue(kv::host::makeDouble(1));
  EXPECT_FALSE(promise(closure, 0)->getClosure());
  EXPECT_TRUE(promise(closure, 1)->getClosure());
  EXPECT_EQ(closure->getOutputPromises().size(), 2u);
}

TEST_F(ClosurePromiseTest, LetsGoOfWhatLiesUpstreamOnceItIsComplete) {
  const Value array = lazyArray(future(closure({future(closure({}))})));
  session.collect();
  const auto closures = [&] {
    return session.liveObjects("kalvex.bigdata.internal.lazyeval.Closure");
  };
  EXPECT_EQ(closures(), 2u);
  ki::fromArray<LazyArrayPtr>(array.get())->promise().setValue(kv::host::makeDouble(1));
  session.collect();
  EXPECT_EQ(closures(), 0u);
}

TEST_F(ClosurePromiseTest, SwapTradesFuturesAndNothingElse) {
  const PromisePtr a = promise(closure({}));
  const PromisePtr b = promise(closure({}));
  a->setMetadata(kv::host::makeDouble(1));
  b->setMetadata(kv::host::makeDouble(2));
  const Value futureOfA = ki::toArray(a->getFuture());
  const auto idOf = [&](const Value& future) {
    return kv::host::toText(get(future, "IdStr").get());
  };
  const std::string before = idOf(futureOfA);

  a->swap(b);

  b->setValue(kv::host::makeDouble(7));
  EXPECT_EQ(getDouble(futureOfA, "Value"), 7);
  EXPECT_EQ(idOf(futureOfA), "future_" + fl::i18n::to_string(b->getId()));
  EXPECT_NE(idOf(futureOfA), before);
  EXPECT_EQ(a->getFuture()->getPromise().get(), a.get());
  EXPECT_EQ(kv::host::toDouble(a->getMetadata()), 1);
  EXPECT_EQ(kv::host::toDouble(b->getMetadata()), 2);
  EXPECT_FALSE(a->isDone());
}

TEST_F(ClosurePromiseTest, SwapWithNothingIsRefusedAndChangesNothing) {
  const PromisePtr promise = this->promise(closure({}));
  const FuturePtr before = promise->getFuture().lock();
  EXPECT_EQ(errorOf([&] { promise->swap(nullptr); }), "KALVEX:class:InvalidHandle");
  EXPECT_EQ(promise->getFuture().get(), before.get());
}

TEST_F(ClosurePromiseTest, LoadKeepsAValueOnlyIfItIsPartitionIndependent) {
  for (const bool isIndependent : {true, false}) {
    const Value value = kv::host::makeDouble(3);
    const Value yes = kv::host::makeLogical(true);
    const Value flag = kv::host::makeLogical(isIndependent);
    const std::pair<std::string, const kxArray*> saved[] = {{"CachedValue", value.get()},
                                                            {"IsDone", yes.get()},
                                                            {"IsPartitionIndependent", flag.get()}};
    const Value loaded = session.loadInstance(kPromiseClass, saved);
    EXPECT_EQ(getFlag(loaded, "IsDone"), isIndependent);
    EXPECT_EQ(get(loaded, "CachedValue") != nullptr, isIndependent);
  }
}

TEST_F(ClosurePromiseTest, AFutureOfADeletedPromiseRaises) {
  const PromisePtr promise = this->promise(closure({}));
  const Value future = ki::toArray(promise->getFuture());
  session.deleteObject(ki::toArray(promise).get());
  EXPECT_EQ(errorOf([&] { get(future, "IsDone"); }), "KALVEX:class:InvalidHandle");
}

}  // namespace

}  // namespace bigdata::lazyeval
