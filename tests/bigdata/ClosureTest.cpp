#include "LazySession.h"
#include "ki/createManagedObject.h"

namespace bigdata::lazyeval {

namespace {

class ClosureTest : public LazySession {
 protected:
  static Value logicalRow(const std::vector<bool>& flags) {
    const std::size_t dimensions[] = {1, flags.size()};
    Value row = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxLOGICAL_CLASS));
    for (std::size_t i = 0; i < flags.size(); ++i) {
      static_cast<bool*>(kxGetMutableData(row.get()))[i] = flags[i];
    }
    return row;
  }

  ClosurePtr closureWithFlags(int numOutputs, const Value& flags) {
    const Value operation = ki::toArray(this->operation(0, numOutputs));
    const Value futures = ki::toArray(std::vector<FuturePtr>());
    return ki::fromArray<ClosurePtr>(callWith("kalvex.bigdata.internal.lazyeval.Closure",
                                              {futures.get(), operation.get(), flags.get()})
                                         .get());
  }
};

TEST_F(ClosureTest, HasAPromiseForEachOutputCountedFromOne) {
  const ClosurePtr closure = this->closure({constant(1)}, 3);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(promise(closure, i)->getArgoutIndex(), i + 1);
    EXPECT_TRUE(promise(closure, i)->isPartitionIndependent());
    EXPECT_EQ(promise(closure, i)->getClosure().get(), closure.get());
  }
  EXPECT_EQ(closure->getIdStr(), u"closure_" + closure->getId());
  EXPECT_EQ(promise(closure)->getIdStr(), u"promise_" + promise(closure)->getId());
}

TEST_F(ClosureTest, TakesOneFlagForAllOutputsOrOneForEach) {
  struct Case {
    int numOutputs;
    std::vector<bool> flags, expected;
  };
  for (const Case& c : {Case{3, {false}, {false, false, false}},
                        Case{3, {true, false, true}, {true, false, true}}, Case{0, {}, {}}}) {
    const ClosurePtr closure = closureWithFlags(c.numOutputs, logicalRow(c.flags));
    std::vector<bool> flags;
    for (const auto& promise : closure->getOutputPromises()) {
      flags.push_back(promise->isPartitionIndependent());
    }
    EXPECT_EQ(flags, c.expected);
  }
}

TEST_F(ClosureTest, RefusesACountOfOutputsThatNobodyMeans) {
  const OperationPtr operation = this->operation(0, 1);
  for (const std::size_t count : {std::size_t{1} << 63, Closure::kMaxOutputs + 1}) {
    operation->setNumOutputs(count);
    EXPECT_EQ(
        errorOf([&] { ki::createManagedObject<Closure>(std::vector<FuturePtr>(), operation); }),
        "KALVEX:CountTooLarge | " + std::to_string(count) + " | 1048576");
  }
}

TEST_F(ClosureTest, LinksThatAreSetReplaceTheOldOnes) {
  const ClosurePtr reader = closure({future(closure({}))}, 2);
  const FuturePtr input = constant(1);
  reader->setInputFutures({input, input});
  ASSERT_EQ(reader->getInputFutures().size(), 2u);
  EXPECT_EQ(reader->getInputFutures()[0].get(), input.get());
  const PromisePtr second = promise(reader, 1);
  reader->setOutputPromises({second});
  ASSERT_EQ(reader->getOutputPromises().size(), 1u);
  EXPECT_EQ(promise(reader).get(), second.get());
  session.collect();
  EXPECT_EQ(session.liveObjects("kalvex.bigdata.internal.lazyeval.Closure"), 1u);
}

TEST_F(ClosureTest, ADeletedInputRaises) {
  const ClosurePtr consumer = closure({future(closure({}))});
  session.deleteObject(ki::toArray(consumer->getInputFutures()[0]).get());
  EXPECT_EQ(errorOf([&] { consumer->getDirectDependencies(); }), "KALVEX:class:InvalidHandle");
}

TEST_F(ClosureTest, IsGarbageWhenNothingOutsideReachesIt) {
  session.collect();
  const std::size_t before = session.liveObjects();
  { closure({future(closure({constant(1)}, 2))}, 2); }
  session.collect();
  EXPECT_EQ(session.liveObjects(), before);
  EXPECT_THAT(session.verify(), ::testing::IsEmpty());
}

}  // namespace

}  // namespace bigdata::lazyeval
