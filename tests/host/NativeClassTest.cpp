#include "HostSession.h"
#include "NativeClasses.h"
#include "kv/host/methodWrappers.h"

namespace kv::test {

namespace {

/// lab.Derived is entered before its superclass lab.Root, which has an abstract method.
class NativeClasses : public HostSession {
 protected:
  void enterBoth() {
    auto* derived = new NativeClass("Derived", [](COSClass* cls, const COSClient*) {
      cls->addSuperclass(id("lab.Root"), 1, 0, 1);
      cls->addMethod(partConstructor("lab.Derived", MemberAccess::Private, 0));
      cls->addMethod(partConstructor("lab.Derived", MemberAccess::Public, 1));
      cls->addProperty(new ValueProperty("Value", "lab.Derived", MemberAccess::Public));
      cls->addProperty(new ValueProperty("Twin", "lab.Derived", MemberAccess::Public, false));
      cls->addMethod(new NativeMethod("count", MemberAccess::Public, 1, answers("one")));
      cls->addMethod(new NativeMethod("count", MemberAccess::Public, 2, answers("two")));
      cls->addMethod(new NativeMethod("count", MemberAccess::Private, 3, answers("three")));
      cls->addMethod(new NativeMethod("spread", MemberAccess::Public, -1, answers("any")));
      cls->addMethod(new NativeMethod("anywhere", MemberAccess::Public, -1, answers("anywhere"),
                                      NativeMethod::kFree));
    });
    enter(derived->implementedByHost(5));
    enter(new NativeClass("Root", [](COSClass* cls, const COSClient*) {
      cls->addMethod(
          new NativeMethod("act", MemberAccess::Public, -1, {}, NativeMethod::kAbstract));
      cls->addMethod(new NativeMethod("inherited", MemberAccess::Public, 1, answers("root")));
    }));
  }
  Value number(double value) { return host::makeDouble(value); }
};

TEST_F(NativeClasses, AreLinkedByNameInAnyOrder) {
  enterBoth();
  EXPECT_EQ(session.classes(), (std::vector<std::string>{"lab.Derived", "lab.Root"}));
  EXPECT_EQ(failure([&] { call("lab.Derived", number(1)); }),
            "KALVEX:class:AbstractClass | lab.Derived | act");
  EXPECT_EQ(failure([&] { call("lab.Root"); }), "KALVEX:class:AbstractClass | lab.Root | act");

  ClassDefinition real;
  real.name = "lab.Real";
  real.superclasses = {"lab.Derived", "lab.Later"};
  real.methods = {{.name = "act", .body = says("acted")}};
  define(real);
  EXPECT_EQ(failure([&] { call("lab.Real"); }), "KALVEX:UndefinedFunction | lab.Later");
  EXPECT_EQ(session.describe("lab.Real").superclasses, real.superclasses);

  ClassDefinition later;
  later.name = "lab.Later";
  define(later);
  real.superclasses = {"lab.Later", "lab.Derived"};
  define(real);
  const Value object = call("lab.Real");
  EXPECT_EQ(said("act", object), "acted");
  EXPECT_EQ(said("inherited", object), "root");
  EXPECT_EQ(partOf(object.get(), "lab.Root").value, 5) << "the class info made the native part";
  for (const char* name : {"lab.Real", "lab.Derived", "lab.Root", "lab.Later"}) {
    EXPECT_TRUE(kxIsA(object.get(), kcos::NameRef::of(name))) << name;
  }
  EXPECT_FALSE(kxIsA(object.get(), "lab.Other"));
}

TEST_F(NativeClasses, EnteringAClassTwiceKeepsTheFirst) {
  enterBoth();
  enterBoth();
  EXPECT_EQ(session.classes().size(), 2u);
}

/// As above, but lab.Root is there already, without the abstract method: objects can be made.
class NativeObjects : public NativeClasses {
 protected:
  NativeObjects() {
    enter(new NativeClass("Root", [](COSClass* cls, const COSClient*) {
      cls->addMethod(new NativeMethod("inherited", MemberAccess::Public, 1, answers("root")));
    }));
    enterBoth();
  }
  ~NativeObjects() override {
    session.close();
    EXPECT_EQ(Part::count, 0);
  }
};

TEST_F(NativeObjects, OverloadsAreChosenByCountAmongThoseTheCallerMayUse) {
  const Value object = call("lab.Derived", number(1));
  EXPECT_EQ(said("count", object), "one");
  EXPECT_EQ(said("count", object, number(1)), "two");
  EXPECT_EQ(failure([&] { call("count", object, number(1), number(2)); }), "KALVEX:TooManyInputs");
  EXPECT_EQ(host::toText(callAs("lab.Derived", "count", object, number(1), number(2)).get()),
            "three");
  EXPECT_EQ(said("spread", object, number(1), number(2), number(3)), "any");
  EXPECT_EQ(said("anywhere", number(1), object), "anywhere");

  EXPECT_EQ(failure([&] { call("lab.Derived"); }), "KALVEX:NotEnoughInputs");
  EXPECT_EQ(failure([&] { call("lab.Derived", number(1), number(2)); }), "KALVEX:TooManyInputs");
  EXPECT_EQ(partOf(callAs("lab.Derived", "lab.Derived").get(), "lab.Root").value, 0);
}

TEST_F(NativeObjects, AWrapperMayReplaceItselfAndAddOthers) {
  const auto proceeds = [](const Call&, const std::function<void()>& proceed) { proceed(); };
  host::wrapMethod("lab.Root", "inherited",
                   [&, text = std::string(500, 'w')](const Call& call, auto&) {
                     host::wrapMethod("lab.Root", "inherited", proceeds);
                     host::wrapMethod("lab.Derived", "count", proceeds);
                     call.out(0, host::makeChars(text));
                   });
  const Value object = call("lab.Derived", number(1));
  EXPECT_EQ(said("inherited", object), std::string(500, 'w'));
  EXPECT_EQ(said("inherited", object), "root");
}

TEST_F(NativeObjects, CountsOfOutputsAreCheckedFirst) {
  const Value object = call("lab.Derived", number(1));
  const kxArray* inputs[] = {object.get()};
  const kxArray* tooMany[] = {object.get(), object.get(), object.get()};
  const Value one = number(1);
  const kxArray* arguments[] = {one.get()};
  EXPECT_EQ(failure([&] { session.call("count", 2, inputs); }), "KALVEX:TooManyOutputs");
  EXPECT_EQ(failure([&] { session.call("count", 2, tooMany); }), "KALVEX:TooManyOutputs");
  EXPECT_EQ(failure([&] { session.call("lab.Derived", 2, arguments); }), "KALVEX:TooManyOutputs");
  EXPECT_EQ(session.call("spread", 3, inputs).size(), 3u);
}

TEST_F(NativeObjects, OnlyObjectArraysHaveElementsThatAreObjects) {
  std::vector<Value> two;
  two.push_back(number(1));
  two.push_back(number(2));
  const Value values[] = {number(1), host::makeCell(std::move(two)), host::makeEmptyDouble(),
                          host::makeString("text"), Value()};
  for (const Value& value : values) {
    EXPECT_EQ(failure([&] { static_cast<void>(kxGetPropertyShared(value.get(), 0, "Value")); }),
              "KALVEX:class:InvalidHandle");
  }
  const Value object = call("lab.Derived", number(1));
  EXPECT_EQ(kcos::omGetArrayElement(object.get(), 1), nullptr);
}

TEST_F(NativeObjects, PropertiesReadAndWriteThePart) {
  const Value object = call("lab.Derived", number(3));
  EXPECT_EQ(host::toDouble(get(object, "Value").get()), 3);
  set(object, "Value", number(4));
  EXPECT_EQ(host::toDouble(get(object, "Twin").get()), 4);
  set(object, "Twin", number(5));
  EXPECT_EQ(host::toDouble(get(object, "Twin").get()), 4) << "no setter: the value is ignored";
  EXPECT_EQ(host::toDouble(host::getProperty(object.get(), "Value").get()), 4);
  const Value shared = matrix::from_kalvex(kxGetPropertyShared(object.get(), 0, "Value"));
  EXPECT_EQ(host::toDouble(shared.get()), 4);
}

TEST_F(NativeObjects, AFailingConstructorLeavesNothing) {
  const std::size_t before = session.liveObjects("lab.Derived");
  EXPECT_EQ(failure([&] { call("lab.Derived", host::makeChars("no number")); }).substr(0, 37),
            "KALVEX:validateattributes:invalidType");
  EXPECT_EQ(session.liveObjects("lab.Derived"), before);
  EXPECT_EQ(Part::count, 0);
}

TEST_F(NativeObjects, NativeCodeMakesObjectsByTheClassItself) {
  COSClass* cls = COSClass::getClass(id("lab.Derived"));
  kcos::COSInterfacePtr object;
  cls->createInstance(object);
  cls->beginConstruction(object);
  object->setInstanceData(id("lab.Derived"), new Part(9));
  cls->endConstruction(object);
  EXPECT_EQ(session.liveObjects("lab.Derived"), 1u);
  const Value array = matrix::from_kalvex(kcos::omCreateKCOSScalar(object));
  EXPECT_EQ(host::toDouble(get(array, "Value").get()), 9);
  EXPECT_EQ(cls->getMethods(id("count")).size(), 3u);
  EXPECT_TRUE(cls->hasMethod(id("inherited")));
}

TEST_F(NativeObjects, LoadAndCopyMakeAShellAndSetWhatIsStored) {
  const Value seven = number(7);
  const std::pair<std::string, const kxArray*> stored[] = {{"Value", seven.get()}};
  const Value loaded = session.loadInstance("lab.Derived", stored);
  EXPECT_EQ(host::toDouble(get(loaded, "Value").get()), 7);
  const Value copy = session.copyInstance(loaded.get());
  set(loaded, "Value", number(8));
  EXPECT_EQ(host::toDouble(get(copy, "Value").get()), 7);
  const std::pair<std::string, const kxArray*> unknown[] = {{"Nothing", seven.get()}};
  EXPECT_EQ(failure([&] { session.loadInstance("lab.Derived", unknown); }),
            "KALVEX:class:NoSuchMember | lab.Derived | Nothing");
}

TEST_F(HostSession, DeclaredMethodsAreMissingUntilTheyAreCompleted) {
  enter(new NativeClass("Half", [](COSClass* cls, const COSClient*) {
    cls->addMethod(partConstructor("lab.Half", MemberAccess::Public, 0));
    cls->declareMethod(id("rest"), MemberAccess::Public);
    cls->declareMethod(id("inner"), MemberAccess::Private);
    cls->declareStaticMethod(id("make"), MemberAccess::Public);
    cls->addMethod(new NativeMethod("own", MemberAccess::Public, 1, answers("own")));
  }));
  const Value object = call("lab.Half");
  EXPECT_EQ(failure([&] { call("rest", object); }), "KALVEX:UndefinedFunction | rest");
  EXPECT_EQ(failure([&] { invoke(object, "rest"); }),
            "KALVEX:class:NoSuchMember | lab.Half | rest");
  EXPECT_EQ(failure([&] { call("inner", object); }), "KALVEX:class:AccessDenied | lab.Half | inner")
      << "access goes before a missing body";
  EXPECT_EQ(failure([&] { call("lab.Half.make"); }), "KALVEX:UndefinedFunction | lab.Half.make");

  complete({.name = "lab.Half",
            .methods = {{.name = "rest", .body = forwardsTo("inner")},
                        {.name = "inner", .body = says("inner")},
                        {.name = "make", .body = says("made"), .isStatic = true}}});
  EXPECT_EQ(said("rest", object), "inner");
  EXPECT_EQ(said("lab.Half.make"), "made");
  EXPECT_EQ(failure([&] { call("inner", object); }),
            "KALVEX:class:AccessDenied | lab.Half | inner");

  complete({.name = "lab.Half", .methods = {{.name = "inner", .body = says("again")}}});
  EXPECT_EQ(said("rest", object), "again");
  EXPECT_EQ(failure([&] {
              complete({.name = "lab.Half", .methods = {{.name = "own", .body = says("mine")}}});
            }),
            "KALVEX:class:NoSuchMember | lab.Half | own");
}

}  // namespace
}  // namespace kv::test
