#include <cstdio>
#include <fstream>
#include <optional>
#include <thread>

#include "HostSession.h"
#include "NativeClasses.h"
#include "foundation/exception.h"
#include "foundation/usm.h"
#include "kv/host/StackHold.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

using Store = foundation::usm::Detail<foundation::usm::scope::Kvm>;

std::string textOf(const Value& value) { return host::toText(value.get()); }

/// The id of a native error, as a closed session raises it.
std::string nativeFailure(const std::function<void()>& action) {
  try {
    action();
  } catch (const foundation::core::except::IMsgIDException& error) {
    return error.get_error_id();
  }
  return "no native error";
}

ClassDefinition simple(std::string name) {
  ClassDefinition definition;
  definition.name = std::move(name);
  definition.properties = {{"Held", nullptr, {}, {}, {}}};
  return definition;
}

void defineIn(host::Session& session, ClassDefinition definition) {
  session.defineClass(std::make_shared<const ClassDefinition>(std::move(definition)));
}

TEST(Sessions, OnOneThreadShareNothing) {
  host::Session first;
  host::Session second;
  first.defineFunction("who", says("first"));
  second.defineFunction("who", says("second"));
  first.defineFunction("only", says("here"));
  defineIn(first, simple("lab.Thing"));
  const host::Session::Scope outer(first);
  EXPECT_EQ(textOf(host::call("who")), "first");
  {
    const host::Session::Scope inner(second);
    EXPECT_EQ(textOf(host::call("who")), "second");
    EXPECT_EQ(textOf(first.call("who", 1, {})[0]), "first") << "a public call names its session";
    EXPECT_EQ(textOf(host::call("who")), "second");
    EXPECT_EQ(failure([] { host::call("only"); }), "KALVEX:UndefinedFunction | only");
    EXPECT_EQ(failure([] { host::call("lab.Thing"); }), "KALVEX:UndefinedFunction | lab.Thing");
  }
  EXPECT_EQ(textOf(host::call("who")), "first");
}

TEST(Sessions, OneFunctionCallsIntoAnotherSession) {
  host::Session first;
  host::Session second;
  second.defineFunction("inner", says("from the second"));
  first.defineFunction("outer", [&second](const Call& call) {
    call.out(0, std::move(second.call("inner", 1, {})[0]));
  });
  EXPECT_EQ(textOf(first.call("outer", 1, {})[0]), "from the second");
  EXPECT_FALSE(host::hasCurrentSession());
}

TEST(Sessions, RefuseEveryUseAfterClose) {
  host::Session session;
  const host::Session::Scope scope(session);
  session.close();
  session.close();
  EXPECT_TRUE(session.isClosed());
  EXPECT_FALSE(host::hasCurrentSession());
  const std::string closed = "KALVEX:session:Closed";
  EXPECT_EQ(nativeFailure([&] { session.call("who", 1, {}); }), closed);
  EXPECT_EQ(nativeFailure([&] { session.collect(); }), closed);
  EXPECT_EQ(nativeFailure([&] { session.describe("KException"); }), closed);
  EXPECT_EQ(nativeFailure([&] { session.warnings(); }), closed);
  EXPECT_EQ(nativeFailure([&] { const host::Session::Scope again(session); }), closed);
  EXPECT_EQ(nativeFailure([] { host::call("who"); }), closed);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep what is freed
std::size_t residentPages() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident;
}

TEST(Sessions, ReturnTheirMemoryToTheSystem) {
  const std::size_t before = residentPages();
  host::Session session;
  defineIn(session, simple("lab.Thing"));
  std::vector<Value> things(isStressed() ? 1'000 : 200'000);
  for (Value& thing : things) {
    thing = session.construct("lab.Thing", {});
    session.set(thing.get(), "Held", host::makeCell({}).get());
  }
  const std::size_t grown = residentPages() - before;
  const Value kept = host::makeChars("a value that was made last and outlives the session");
  things.resize(1);
  session.close();
  if (!isStressed()) {
    EXPECT_LT(residentPages(), before + grown / 4);
  }
}
#endif

TEST(Sessions, LeaveNothingWhenTheyAreOpenedUsedAndClosed) {
  const host::Ledger before = host::ledger();
  Value kept;
  for (std::size_t round = 0; round < sizes().sessions; ++round) {
    host::Session session;
    const host::Session::Scope scope(session);
    enter((new NativeClass("Native", [](COSClass* cls, const COSClient*) {
            cls->addMethod(partConstructor("lab.Native", MemberAccess::Public, 1));
          }))->implementedByHost(1));
    defineIn(session, simple("lab.Thing"));
    const Value thing = host::call("lab.Thing");
    session.set(thing.get(), "Held", thing.get());  // a cycle
    const Value captured = matrix::sharedCopy(thing.get());
    session.defineFunction(
        "holds",
        [alive = std::make_shared<Value>(matrix::sharedCopy(thing.get()))](const Call&) {});
    const Value number = host::makeDouble(static_cast<double>(round));
    kept = host::call("lab.Native", {number.get()});
    const host::CallSite site(std::source_location::current());
    EXPECT_EQ(failure([] { host::call("missing"); }), "KALVEX:UndefinedFunction | missing");
  }
  EXPECT_EQ(Part::count, 0);
  kept = nullptr;  // a value that outlived its session
  const host::Ledger after = host::ledger();
  std::printf("leaks: %zu sessions\n", sizes().sessions);
  EXPECT_EQ(after.objects, before.objects);
  EXPECT_EQ(after.arrays, before.arrays);
  EXPECT_EQ(after.payloads, before.payloads);
  EXPECT_EQ(after.payloadBytes, before.payloadBytes);
}

TEST(Sessions, AnObjectOfAClosedSessionIsADeletedOneToOthers) {
  Value left;
  {
    host::Session first;
    const host::Session::Scope scope(first);
    defineIn(first, simple("lab.Thing"));
    left = host::call("lab.Thing");
  }
  host::Session second;
  second.defineFunction("take", says("taken"));
  const kxArray* inputs[] = {left.get()};
  EXPECT_EQ(textOf(second.call("take", 1, inputs)[0]), "taken");
  EXPECT_EQ(failure([&] { second.get(left.get(), "Held"); }), "KALVEX:class:InvalidHandle");
  EXPECT_EQ(failure([&] { second.invoke(left.get(), "take", 1, {}); }),
            "KALVEX:class:InvalidHandle");
}

TEST(Sessions, AStoreHasItsSlotsPerSessionAndDestroysThemAfterTheObjects) {
  struct Tag {};
  static const std::size_t slotId = Store::getNextID(typeid(Tag));
  static std::string log;
  log.clear();
  const auto store = [](const char* text) {
    foundation::usm::Slot slot(new std::string(text), [](void* stored) {
      const std::unique_ptr<std::string> owned(static_cast<std::string*>(stored));
      log += *owned + " ";
    });
    return *static_cast<std::string*>(
        Store::findOrInsert(slotId, typeid(Tag), std::move(slot)).get());
  };
  EXPECT_THROW(Store::findOrInsert(slotId, typeid(Tag), {nullptr, [](void*) {}}), std::exception);
  host::Session first;
  host::Session second;
  {
    const host::Session::Scope scope(first);
    EXPECT_EQ(Store::find(slotId, typeid(Tag)), nullptr);
    EXPECT_THROW(Store::findOrFail(slotId, typeid(Tag)), std::out_of_range);
    EXPECT_EQ(store("one"), "one");
    EXPECT_EQ(store("rejected"), "one");
  }
  {
    const host::Session::Scope scope(second);
    EXPECT_EQ(Store::find(slotId, typeid(Tag)), nullptr);
    EXPECT_EQ(store("two"), "two");
  }
  EXPECT_EQ(log, "rejected ");
  second.close();
  first.close();
  EXPECT_EQ(log, "rejected two one ");
}

TEST(Sessions, KeepClassesPerProcessOnlyWhenAlone) {
  {
    host::Session alone({.stress = false, .classesPerSession = false});
    const host::Session::Scope scope(alone);
    EXPECT_FALSE(kcos::omGetKcosUsingUSM());
    EXPECT_EQ(nativeFailure([] { host::Session another; }), "KALVEX:session:NotAlone");
  }
  host::Session usual;
  const host::Session::Scope scope(usual);
  EXPECT_TRUE(kcos::omGetKcosUsingUSM());
  EXPECT_EQ(
      nativeFailure([] { host::Session alone({.stress = false, .classesPerSession = false}); }),
      "KALVEX:session:NotAlone");
}

TEST(Sessions, MayBeLeasedToAnotherThread) {
  host::Session session;
  session.defineFunction("who", says("me"));
  std::string said;
  std::thread([&] { said = textOf(session.call("who", 1, {})[0]); }).join();
  EXPECT_EQ(said, "me");
  EXPECT_EQ(textOf(session.call("who", 1, {})[0]), "me");
}

using UserStack = HostSession;

Value stackOf() { return matrix::from_kalvex(inGetKfunctionStack(1, 1, 0)); }

std::vector<std::string> lines(const Value& stack) {
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < kxGetNumberOfElements(stack.get()); ++i) {
    const auto text = [&](const char* field) {
      return host::toText(kxGetField(stack.get(), i, field));
    };
    lines.push_back(
        text("file") + ":" + text("name") + ":" +
        std::to_string(static_cast<int>(kxGetScalar(kxGetField(stack.get(), i, "line")))));
  }
  return lines;
}

TEST_F(UserStack, ComesFromTheProviderOnceForEachDistinctStack) {
  std::vector<host::Frame> frames{{"a.py", "inner", 3}, {"b.py", "outer", 7}};
  session.setStackProvider([&frames] { return frames; });
  const Value first = stackOf();
  EXPECT_EQ(lines(first), (std::vector<std::string>{"a.py:inner:3", "b.py:outer:7"}));
  EXPECT_TRUE(kxIsSameValue(first.get(), stackOf().get()));
  frames[0].line = 4;
  EXPECT_FALSE(kxIsSameValue(first.get(), stackOf().get()));
  EXPECT_EQ(lines(first)[0], "a.py:inner:3");
  std::optional<host::StackHold> held(std::in_place);
  frames[0].line = 5;
  { const host::StackHold inner; }
  EXPECT_EQ(lines(stackOf())[0], "a.py:inner:4") << "it is held";
  held.reset();
  EXPECT_EQ(lines(stackOf())[0], "a.py:inner:5");
}

TEST_F(UserStack, ComesFromOpenCallSitesOtherwise) {
  EXPECT_EQ(kxGetM(stackOf().get()), 0u);
  EXPECT_EQ(kxGetN(stackOf().get()), 1u);
  const host::CallSite outer(std::source_location::current());
  for (int round = 0; round < 2; ++round) {
    const host::CallSite inner(std::source_location::current());
    EXPECT_EQ(lines(stackOf()).size(), 2u);
  }
  EXPECT_EQ(lines(stackOf()).size(), 1u);
}

TEST_F(HostSession, WarningsAreKeptWithTheirText) {
  const std::vector<std::string> arguments{"2015a"};
  kxWarningMsgId("KALVEX:bigdata:array:InvalidTallVersion", arguments);
  ASSERT_EQ(session.warnings().size(), 1u);
  EXPECT_EQ(session.warnings()[0].arguments, arguments);
  EXPECT_NE(session.warnings()[0].message.find("2015a"), std::string::npos);
  session.clearWarnings();
  EXPECT_TRUE(session.warnings().empty());
}

}  // namespace
}  // namespace kv::test
