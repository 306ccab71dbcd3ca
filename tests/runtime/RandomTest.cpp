#include <gmock/gmock.h>

#include <algorithm>

#include "random/Philox.h"
#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;

/// The known answers published with Random123.
TEST(Philox, GivesThePublishedAnswers) {
  EXPECT_THAT(philox4x32({0, 0, 0, 0}, {0, 0}),
              ElementsAre(0x6627e8d5u, 0xe169c58du, 0xbc57ac4cu, 0x9b00dbd8u));
  EXPECT_THAT(philox4x32({~0u, ~0u, ~0u, ~0u}, {~0u, ~0u}),
              ElementsAre(0x408f276du, 0x41c83b0eu, 0xa20bc7c6u, 0x6d5451fdu));
  EXPECT_THAT(
      philox4x32({0x243f6a88u, 0x85a308d3u, 0x13198a2eu, 0x03707344u}, {0xa4093822u, 0x299f31d0u}),
      ElementsAre(0xd16cfe09u, 0x94fdccebu, 0x5001e420u, 0x24126ea1u));
}

class Random : public RuntimeSession {
 protected:
  static std::vector<double> numbers(const Value& value) {
    const auto* data = static_cast<const double*>(kxGetData(value.get()));
    return {data, data + kxGetNumberOfElements(value.get())};
  }
  static std::vector<double> draw(const Value& stream, double count) {
    return numbers(host::call("rand", {stream.get(), host::makeDouble(count).get()}));
  }
  static Value make(kcos::NameRef name, double seed) {
    return host::call(name, {host::makeDouble(seed).get()});
  }
  static Value partitionOf(const Value& factory, double partition) {
    return host::call("getRandStreamForPartition",
                      {factory.get(), host::makeDouble(partition).get()});
  }
  static Value factoryOf(double seed) {
    return make("kalvex.bigdata.internal.RandStreamFactory", seed);
  }

  static Value optionsWith(const Value& factory) {
    const Value label = host::makeChars("RequiresRandState");
    const Value yes = host::makeLogical(true);
    const Value streams = host::makeChars("RandStreamFactory");
    return host::call("kalvex.bigdata.internal.PartitionedArrayOptions",
                      {label.get(), yes.get(), streams.get(), factory.get()});
  }

  /// One random number per row of `x`, each from the stream of its partition.
  static Value noisy(const Value& x, const Value& factory) {
    const Value options = optionsWith(factory);
    const Value handle = host::makeFunctionHandle("noise", [](const host::Call& call) {
      const Value rows = host::makeDouble(static_cast<double>(kxGetM(call.in(0))));
      call.out(0, host::call("rand", {rows.get()}));
    });
    return host::call("elementfun", {options.get(), handle.get(), x.get()});
  }
};

TEST_F(Random, AStreamDependsOnlyOnSeedAndPartition) {
  const Value factory = factoryOf(7);
  const std::vector<double> first = draw(partitionOf(factory, 1), 5);
  EXPECT_EQ(draw(partitionOf(factoryOf(7), 1), 5), first);
  EXPECT_NE(draw(partitionOf(factory, 2), 5), first);
  EXPECT_NE(draw(partitionOf(factoryOf(8), 1), 5), first);
  for (const double number : first) {
    EXPECT_GE(number, 0);
    EXPECT_LT(number, 1);
  }
  const Value stream = partitionOf(factory, 1);
  std::vector<double> pieces = draw(stream, 3);
  const std::vector<double> rest = draw(stream, 2);
  pieces.insert(pieces.end(), rest.begin(), rest.end());
  EXPECT_EQ(pieces, first);
}

TEST_F(Random, FactoriesDrawTheirSeedsFromTheSessionsStream) {
  const auto seeds = [&] {
    host::call("RandStream.setGlobalStream", {make("RandStream", 3).get()});
    std::vector<double> made;
    for (int i = 0; i < 2; ++i) {
      const Value factory = host::call("kalvex.bigdata.internal.RandStreamFactory");
      made.push_back(kxGetScalar(host::getProperty(factory.get(), "Seed").get()));
    }
    return made;
  };
  const std::vector<double> first = seeds();
  EXPECT_NE(first[0], first[1]);
  EXPECT_EQ(seeds(), first);
}

TEST_F(Random, EachPartitionDrawsFromItsOwnStreamAndTheSessionsStaysAsItWas) {
  const Value t = table({"x\n1\n2\n3\n", "x\n4\n5\n"});
  const Value factory = factoryOf(11);
  const Value global = host::call("RandStream.getGlobalStream");
  std::vector<double> expected = draw(partitionOf(factory, 1), 3);
  const std::vector<double> second = draw(partitionOf(factory, 2), 2);
  expected.insert(expected.end(), second.begin(), second.end());
  const Value drawn = noisy(column(t, "x"), factory);
  EXPECT_EQ(gather(drawn), expected);
  EXPECT_TRUE(kxIsSameValue(host::call("RandStream.getGlobalStream").get(), global.get()));

  EXPECT_EQ(gather(noisy(drawn, factory)), expected) << "evaluated at once";
}

TEST_F(Random, TheStreamOfAPartitionEndsWithIt) {
  setThreads(1);
  const Value t = table({"x\n1\n", "x\n2\n", "x\n3\n", "x\n4\n", "x\n5\n", "x\n6\n"});
  const Value global = host::call("RandStream.getGlobalStream");
  const std::size_t others = session.liveObjects("RandStream");
  std::size_t most = 0;
  const Value counting = host::makeFunctionHandle("counting", [&](const host::Call& call) {
    most = std::max(most, session.liveObjects("RandStream") - others);
    call.out(0, matrix::sharedCopy(call.in(0)));
  });
  const Value options = optionsWith(factoryOf(1));
  gather(host::call("elementfun", {options.get(), counting.get(), column(t, "x").get()}));
  EXPECT_EQ(most, 1u);
}

TEST_F(Random, AUsersProcessorFactoryDrawsFromItsPartitionsStream) {
  static constexpr char kOperation[] = "kalvex.bigdata.internal.lazyeval.Operation";
  host::ClassDefinition drawing{
      .name = "mine.DrawingFactory",
      .superclasses = {"kalvex.bigdata.internal.executor.DataProcessorFactory"}};
  drawing.methods.push_back({.name = "feval", .body = [](const host::Call& call) {
                               const double rows = static_cast<double>(kxGetM(call.in(1)));
                               call.out(0, host::call("rand", {host::makeDouble(rows).get()}));
                             }});
  host::ClassDefinition operation{.name = "mine.Drawing", .superclasses = {kOperation}};
  operation.constructor = host::MethodDefinition{.body = [&](const host::Call& call) {
    const Value one = host::makeDouble(1);
    host::constructSuperclass(call.in(0), kOperation, {one.get(), one.get()});
    host::setSlot(call.in(0), "Options", matrix::sharedCopy(call.in(1)));
  }};
  operation.methods.push_back(
      {.name = "createExecutionTasks", .body = [](const host::Call& call) {
         const Value made = host::call("mine.DrawingFactory");
         const Value factory = host::call("addGlobalState", {call.in(0), made.get()});
         const Value any = host::makeEmptyDouble();
         const Value one = host::makeDouble(1);
         call.out(0, host::call("kalvex.bigdata.internal.executor.ExecutionTask",
                                {call.in(1), factory.get(), any.get(), one.get()}));
       }});
  session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(drawing)));
  session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(operation)));

  const Value factory = factoryOf(5);
  const Value made = host::call("mine.Drawing", {optionsWith(factory).get()});
  const Value x = column(table({"x\n1\n2\n"}), "x");
  const Value drawn = host::call("applyOperationBuiltin", {made.get(), x.get()});
  EXPECT_EQ(gather(drawn), draw(partitionOf(factory, 1), 2));
}

TEST_F(Random, ASeedIsAWholeNumber) {
  for (const double seed : {-1.0, 0.5, 0x1p53}) {
    EXPECT_NE(errorOf([&] { make("RandStream", seed); }).identifier, "") << seed;
  }
}

}  // namespace
}  // namespace kv::runtime::test
