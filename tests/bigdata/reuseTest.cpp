#include "lazyeval/reuse.h"

#include "LazySession.h"
#include "ki/createManagedObject.h"
#include "lazyeval/evaluationMethods.h"

namespace bigdata::lazyeval {

namespace {

class ReuseTest : public LazySession {
 protected:
  static ClosurePromise& promiseOf(const Value& array) {
    return ki::fromArray<LazyArrayPtr>(array.get())->promise();
  }
  static std::string operationOf(const Value& array) {
    const Value operation = ki::toArray(promiseOf(array).getClosure()->getOperation());
    const std::string name = kxGetClassName(operation.get());
    return name.substr(name.rfind('.') + 1);
  }
  static Value operationObject(const Value& array) {
    return ki::toArray(promiseOf(array).getClosure()->getOperation());
  }
  void mark(const Value& array) { session.call("markforreuse", 0, {{array.get()}}); }
  void complete(const Value& array) { promiseOf(array).setValue(kv::host::makeDouble(1)); }
  void setKey(const Value& array, std::string_view key) {
    const Value text = kv::host::makeString(key);
    session.set(operationObject(array).get(), "CacheEntryKey", text.get());
  }

  const Value two = kv::host::makeDouble(2);
  const Value x = lazyArray(future(closure({})));
  const Value y = lazyArray(future(closure({})));
};

TEST_F(ReuseTest, ACacheNodeTakesThePlaceOfTheValueInPlace) {
  promiseOf(x).setMetadata(kv::host::makeString("rows"));
  promiseOf(x).setPartitionIndependent(false);
  const Value before = get(x, "ValueFuture");
  const Value other = lazyArray(ki::fromArray<FuturePtr>(before.get()));
  mark(x);
  EXPECT_EQ(operationOf(x), "CacheOperation");
  EXPECT_EQ(kv::host::toText(promiseOf(x).getMetadata()), "rows");
  EXPECT_TRUE(promiseOf(x).isPartitionIndependent());
  EXPECT_TRUE(isSameObject(ki::toArray(promiseOf(x).getClosure()->getInputFutures()[0]), before));
  EXPECT_TRUE(isSameObject(get(other, "ValueFuture"), before));

  complete(x);
  mark(x);
  EXPECT_FALSE(promiseOf(x).isDone());
  EXPECT_EQ(operationOf(x), "CacheOperation");
}

TEST_F(ReuseTest, MarkingWritesOneOutputMoreThanIsAskedFor) {
  const std::array<const kxArray*, 3> inputs{x.get(), y.get(), x.get()};
  const auto written = [&](int nlhs) {
    std::vector<kxArray*> outputs(4, nullptr);
    std::array<const kxArray*, 3> list = inputs;
    markforreuse({nlhs, outputs.data(), 3, list.data()});
    std::string names;
    for (kxArray* output : outputs) {
      const Value owned = matrix::from_kalvex(output);
      names += owned == nullptr ? '-' : isSameObject(owned, x) ? 'x' : 'y';
    }
    return names;
  };
  EXPECT_EQ(written(0), "x---");
  EXPECT_EQ(written(1), "xy--");
  EXPECT_EQ(written(2), "xyx-");
  EXPECT_EQ(session.call("markforreuse", 1, inputs).size(), 1u);
  EXPECT_EQ(session.call("markforreuse", 2, inputs).size(), 2u);
}

TEST_F(ReuseTest, ASuccessorIsTiedToTheOldKeyWhileBothArePending) {
  stub("setOldKey");
  mark(x);
  setKey(x, "old");
  calls.clear();
  invoke(x, "updateforreuse", y);
  EXPECT_EQ(takeTrace(), "CacheOperation() setOldKey(double old)") << "the new key is still empty";
  EXPECT_EQ(operationOf(y), "CacheOperation");

  complete(x);
  const Value z = lazyArray(future(closure({})));
  calls.clear();
  invoke(x, "updateforreuse", z);
  EXPECT_EQ(takeCalls(), "CacheOperation");
  EXPECT_EQ(operationOf(z), "CacheOperation");
}

TEST_F(ReuseTest, APreviewIsSetOnceWhileTheValueIsPending) {
  const Value yes = kv::host::makeLogical(true);
  const auto cached = [&] { return session.invoke(x.get(), "getCachedPreviewData", 2, {}); };
  EXPECT_EQ(cached()[0], nullptr);
  EXPECT_FALSE(kv::host::toLogical(cached()[1].get()));
  invoke(x, "setCachedPreviewData", two, yes);
  EXPECT_EQ(kv::host::toDouble(cached()[0].get()), 2);
  EXPECT_TRUE(kv::host::toLogical(cached()[1].get()));
  EXPECT_NE(errorOf([&] { invoke(x, "setCachedPreviewData", yes, yes); }), "no error");
  complete(x);
  EXPECT_TRUE(kv::host::toLogical(invoke(x, "hasCachedPreviewData").get()));
  EXPECT_EQ(getDouble(x, "PreviewData"), 2);
  EXPECT_TRUE(getFlag(x, "IsPreviewTruncated"));
}

TEST_F(ReuseTest, NativeCodeReachesTheMethodsOfEvaluation) {
  auto completion = std::make_shared<kv::host::ClassCompletion>();
  completion->name = "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";
  completion->methods.push_back(
      {.name = "gather", .body = [](const Call& c) { c.out(0, kv::host::makeDouble(3)); }});
  session.completeClass(completion);
  const kxArray* inputs[] = {x.get()};
  kxArray* output = nullptr;
  gather({1, &output, 1, inputs});
  EXPECT_EQ(kv::host::toDouble(matrix::from_kalvex(output).get()), 3);
  output = nullptr;
  EXPECT_EQ(errorOf([&] {
              clientforeach({1, &output, 1, inputs});
            }),
            internalError("Could not find method "
                          "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray/clientforeach"));
}

}  // namespace

}  // namespace bigdata::lazyeval
