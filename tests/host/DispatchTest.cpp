#include "HostSession.h"
#include "NativeClasses.h"
#include "support/SmallStack.h"

namespace kv::test {

namespace {

using Dispatch = HostSession;

void builtinSays(int, kxArray** plhs, int, const kxArray**) {
  plhs[0] = host::makeChars("builtin").release();
}

void builtinFails(int, Value* plhs, int, const kxArray**) {
  plhs[0] = host::makeChars("dropped");
  throw std::runtime_error("the builtin failed");
}

ClassDefinition thing(std::string name) {
  ClassDefinition definition;
  definition.name = std::move(name);
  return definition;
}

TEST_F(Dispatch, StrongerMeaningsOfANameComeFirstAndAreSeenAtOnce) {
  const std::string name = "lab.Thing.who";
  EXPECT_EQ(failure([&] { call(name); }), "KALVEX:UndefinedFunction | " + name);

  session.defineBuiltin(name, builtinSays);
  EXPECT_EQ(said(name), "builtin");

  ClassDefinition owner = thing("lab.Thing");
  owner.methods.push_back({.name = "who", .body = says("static method"), .isStatic = true});
  define(owner);
  EXPECT_EQ(said(name), "static method");

  define(thing(name));
  EXPECT_EQ(kxGetClassName(call(name).get()), name);

  session.defineFunction(name, says("function"));
  EXPECT_EQ(said(name), "function");
  session.defineFunction(name, says("function, replaced"));
  EXPECT_EQ(said(name), "function, replaced");

  ClassDefinition methodical = thing("lab.Methodical");
  methodical.methods.push_back({.name = name, .body = says("method")});
  define(methodical);
  EXPECT_EQ(said(name, host::makeDouble(1), call("lab.Methodical")), "method");
  EXPECT_EQ(said(name, host::makeDouble(1)), "function, replaced");
}

TEST_F(Dispatch, TheLeftmostObjectWithTheMethodIsCalled) {
  for (const char* name : {"lab.A", "lab.B", "lab.Mute"}) {
    ClassDefinition definition = thing(name);
    if (std::string(name) != "lab.Mute") {
      definition.methods.push_back({.name = "who", .body = says(name)});
    }
    define(definition);
  }
  const Value a = call("lab.A");
  const Value b = call("lab.B");
  const Value mute = call("lab.Mute");
  EXPECT_EQ(said("who", a, b), "lab.A");
  EXPECT_EQ(said("who", mute, host::makeDouble(2), b, a), "lab.B");
  EXPECT_EQ(failure([&] { call("who", mute); }), "KALVEX:UndefinedFunction | who");
}

TEST_F(Dispatch, FevalLooksAtItsFirstInputAlone) {
  ClassDefinition callee = thing("lab.Callee");
  callee.methods.push_back({.name = "feval", .body = says("the object's feval")});
  define(callee);
  session.defineFunction("second",
                         [](const Call& call) { call.out(0, matrix::sharedCopy(call.in(1))); });
  const Value object = call("lab.Callee");
  EXPECT_EQ(said("feval", object), "the object's feval");
  EXPECT_EQ(said("feval", host::makeChars("second"), object, host::makeChars("b")), "b");
  EXPECT_EQ(
      said("feval", call("str2func", host::makeString("second")), object, host::makeChars("c")),
      "c");
  EXPECT_EQ(said("feval", host::makeFunctionHandle("lambda", says("callable"))), "callable");
  EXPECT_EQ(failure([&] { call("feval"); }), "KALVEX:NotEnoughInputs");
  EXPECT_EQ(failure([&] { call("feval", host::makeDouble(1)); }).substr(0, 35),
            "KALVEX:validateattributes:invalidTy");
}

TEST_F(Dispatch, OutputsThatWereNotWrittenAreNull) {
  session.defineFunction("silent", [](const Call&) {});
  session.defineFunction("one", says("1"));
  EXPECT_EQ(call("silent"), nullptr);
  const std::vector<Value> outputs = session.call("one", 3, {});
  ASSERT_EQ(outputs.size(), 3u);
  EXPECT_NE(outputs[0], nullptr);
  EXPECT_EQ(outputs[1], nullptr);
  EXPECT_NE(session.call("one", 0, {})[0], nullptr) << "a value that came anyway is kept";
}

TEST_F(Dispatch, AFailingCallLeavesNoOutput) {
  session.defineBuiltin("fails", builtinFails);
  kxArray* output = nullptr;
  EXPECT_EQ(failure([&] { inCallFcn(1, &output, 0, nullptr, "fails"); }),
            "KALVEX:NativeException | the builtin failed");
  EXPECT_EQ(output, nullptr);
  session.defineFunction("writesFirst", [](const Call& call) {
    call.out(0, host::makeChars("written"));
    host::raise("KALVEX:OutOfMemory");
  });
  EXPECT_EQ(failure([&] { inCallFcn(1, &output, 0, nullptr, "writesFirst"); }),
            "KALVEX:OutOfMemory");
  EXPECT_EQ(output, nullptr);
}

TEST_F(Dispatch, AFunctionMayReplaceItselfWhileItRuns) {
  const auto witness = std::make_shared<int>(7);
  session.defineFunction("once", [this, witness](const Call& call) {
    session.defineFunction("once", says("new"));
    call.out(0, host::makeChars(std::to_string(*witness)));
  });
  EXPECT_EQ(witness.use_count(), 2);
  EXPECT_EQ(said("once"), "7");
  EXPECT_EQ(witness.use_count(), 1);
  EXPECT_EQ(said("once"), "new");
}

TEST_F(Dispatch, CallMethodGoesByClassAndName) {
  const COSClient* client = nullptr;
  enter(new NativeClass("Native", [&client](COSClass* cls, const COSClient* own) {
    client = own;
    cls->addMethod(partConstructor("lab.Native", MemberAccess::Public, 0));
    cls->declareMethod(id("declared"), MemberAccess::Public);
    cls->declareStaticMethod(id("helper"), MemberAccess::Private);
    cls->addMethod(new NativeMethod("own", MemberAccess::Public, 1, answers("own")));
  }));
  const Value object = call("lab.Native");
  const auto callMethod = [&](std::string_view method, int nrhs) {
    kxArray* output = nullptr;
    const kxArray* inputs[] = {object.get()};
    const bool called =
        kcos::omCallMethod(id("lab.Native"), id(method), client, 1, &output, nrhs, inputs, false);
    const Value owned = matrix::from_kalvex(output);
    return called ? host::toText(owned.get()) : "not called";
  };
  EXPECT_EQ(callMethod("own", 1), "own");
  EXPECT_EQ(callMethod("declared", 1), "not called");
  EXPECT_EQ(callMethod("absent", 1), "not called");
  complete({.name = "lab.Native",
            .methods = {{.name = "declared", .body = says("completed")},
                        {.name = "helper", .body = says("private static"), .isStatic = true}}});
  EXPECT_EQ(callMethod("declared", 1), "completed");
  EXPECT_EQ(callMethod("helper", 0), "private static");
  EXPECT_EQ(failure([&] { callMethod("own", 0); }), "KALVEX:NotEnoughInputs");
  client = nullptr;
  EXPECT_EQ(failure([&] { callMethod("helper", 0); }),
            "KALVEX:class:AccessDenied | lab.Native | helper");
}

TEST_F(Dispatch, InfiniteRecursionIsAnErrorBeforeTheStackIsUsedUp) {
  session.defineFunction("again", forwardsTo("again"));
  EXPECT_EQ(failure([&] { call("again"); }), "KALVEX:RecursionLimit | 1000");
  session.defineFunction("again", says("usable"));
  EXPECT_EQ(said("again"), "usable");

  runOnSmallStack([] {
    host::Session small;
    const host::Session::Scope current(small);
    small.defineFunction("again", [](const Call& at) {
      volatile char wide[4096] = {};  // as wide as a body may well be
      forwardsTo("again")(at);
      wide[0] = wide[1];
    });
    const auto recurse = [&] { small.call("again", 1, {}); };
    const ErrorRecord error = errorOf(recurse);
    EXPECT_EQ(error.identifier, "KALVEX:RecursionLimit");
    EXPECT_LT(std::stoi(error.arguments.at(0)), 100);
  });
}

}  // namespace
}  // namespace kv::test
