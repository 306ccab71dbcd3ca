#include "HostSession.h"
#include "NativeClasses.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

/// A C++ value that counts how many there are.
struct Counted final : host::NativeValue {
  Counted() { ++count; }
  ~Counted() override { --count; }
  static inline int count = 0;
};

class LanguageClasses : public HostSession {
 protected:
  /// A constructor body that notes the class, and its inputs after the object.
  NativeBody notes(std::string name) {
    return [this, name = std::move(name)](const Call& call) {
      log += name + "(" + std::to_string(call.nrhs - 1) + ") ";
    };
  }
  static MethodDefinition constructor(NativeBody body, Arity arity = {}) {
    return {.name = "", .body = std::move(body), .arity = arity};
  }
  ClassDefinition derive(std::string name, std::vector<std::string> superclasses) {
    ClassDefinition definition;
    definition.name = std::move(name);
    definition.superclasses = std::move(superclasses);
    return definition;
  }
  std::string takeLog() { return std::exchange(log, {}); }

  std::string log;
};

TEST_F(LanguageClasses, PropertiesHaveDefaultsSlotsAndComputations) {
  ClassDefinition point;
  point.name = "lab.Point";
  point.properties = {{"X", [] { return host::makeDouble(3); }, {}, {}, {}},
                      {"Note", nullptr, {}, {}, {}},
                      {"Twice", nullptr, {}, {}, [](const Call& call) {
                         const Value x = host::getSlot(call.in(0), "X");
                         call.out(0, host::makeDouble(2 * host::toDouble(x.get())));
                       }}};
  define(point);
  const Value object = call("lab.Point");
  EXPECT_EQ(host::toDouble(get(object, "Twice").get()), 6);
  EXPECT_TRUE(kxIsEmpty(get(object, "Note").get()));
  set(object, "X", host::makeDouble(5));
  EXPECT_EQ(host::toDouble(get(object, "Twice").get()), 10);
  EXPECT_EQ(failure([&] { set(object, "Twice", host::makeDouble(1)); }),
            "KALVEX:class:AccessDenied | lab.Point | Twice");
  EXPECT_EQ(host::toDouble(get(call("lab.Point"), "X").get()), 3) << "objects share no slots";

  const Value copy = session.copyInstance(object.get());
  set(object, "X", host::makeDouble(6));
  EXPECT_EQ(host::toDouble(get(copy, "X").get()), 5);
}

TEST_F(LanguageClasses, TheHostRunsTheConstructorsThatABodyDidntRun) {
  for (const char* name : {"lab.Left", "lab.Right"}) {
    ClassDefinition side = derive(name, {"lab.Top"});
    side.constructor = constructor(notes(name));
    define(side);
  }
  ClassDefinition top = derive("lab.Top", {});
  top.constructor = constructor(notes("lab.Top"));
  define(top);

  ClassDefinition both = derive("lab.Both", {"lab.Left", "lab.Right"});
  both.constructor = constructor([this](const Call& call) {
    log += "Both ";
    const Value one = host::makeDouble(1);
    host::constructSuperclass(call.in(0), "lab.Right", {one.get()});
  });
  define(both);
  call("lab.Both");
  EXPECT_EQ(takeLog(), "Both lab.Right(1) lab.Top(0) lab.Left(0) ") << "each part once";

  define(derive("lab.Plain", {"lab.Both"}));
  call("lab.Plain");
  EXPECT_EQ(takeLog(), "lab.Top(0) lab.Left(0) lab.Right(0) Both lab.Right(1) ");
}

TEST_F(LanguageClasses, AClassWithoutConstructorHandsItsInputsToItsOnlySuperclass) {
  ClassDefinition base = derive("lab.Base", {});
  base.constructor = constructor(notes("lab.Base"), {1, 3});
  define(base);
  define(derive("lab.Derived", {"lab.Base"}));
  const Value one = host::makeDouble(1);
  call("lab.Derived", one, one);
  EXPECT_EQ(takeLog(), "lab.Base(2) ");
  EXPECT_EQ(failure([&] { call("lab.Derived", one, one, one); }), "KALVEX:TooManyInputs");
  define(derive("lab.Rootless", {}));
  EXPECT_EQ(failure([&] { call("lab.Rootless", one); }), "KALVEX:TooManyInputs");
}

TEST_F(LanguageClasses, OnlyADirectSuperclassCanBeConstructed) {
  define(derive("lab.Top", {}));
  ClassDefinition wrong = derive("lab.Wrong", {"lab.Top"});
  wrong.constructor = constructor(
      [](const Call& call) { host::constructSuperclass(call.in(0), "lab.Stranger", {}); });
  define(wrong);
  EXPECT_EQ(failure([&] { call("lab.Wrong"); }),
            "KALVEX:class:NoSuchMember | lab.Wrong | lab.Stranger");
}

/// With lab.Native, whose info makes the value 11 where construction left no native part.
TEST_F(LanguageClasses, AnEmptyNameIsNoMember) {
  ClassDefinition thing = derive("lab.Thing", {});
  thing.properties = {{"Note", nullptr, {}, {}, {}}};
  define(thing);
  const Value object = call("lab.Thing");
  EXPECT_EQ(failure([&] { get(object, ""); }), "KALVEX:class:NoSuchMember | lab.Thing | ");
  EXPECT_EQ(failure([&] { set(object, "", object); }), "KALVEX:class:NoSuchMember | lab.Thing | ");
  EXPECT_EQ(failure([&] { invoke(object, ""); }), "KALVEX:class:NoSuchMember | lab.Thing | ");
  EXPECT_EQ(failure([&] { call("", object); }), "KALVEX:UndefinedFunction | ");
  EXPECT_FALSE(kxIsA(object.get(), ""));
}

TEST_F(LanguageClasses, AnEmptyNameCantBeDefined) {
  const std::string refused = "KALVEX:validateattributes:invalidType | Input | a name | ";
  ClassDefinition withProperty = derive("lab.A", {});
  withProperty.properties = {{"", nullptr, {}, {}, {}}};
  ClassDefinition withMethod = derive("lab.B", {});
  withMethod.methods = {{.name = "", .body = says("nothing")}};
  for (const ClassDefinition& definition :
       {derive("", {}), derive("lab.", {}), derive("lab.C", {""}), withProperty, withMethod}) {
    EXPECT_EQ(failure([&] { define(definition); }), refused) << definition.name;
  }
  EXPECT_EQ(failure([&] { session.defineFunction("", says("nothing")); }), refused);
  EXPECT_EQ(failure([&] { call("lab.A"); }), "KALVEX:UndefinedFunction | lab.A");
}

class NativeHeirs : public LanguageClasses {
 protected:
  NativeHeirs() {
    auto* info = new NativeClass("Native", [](COSClass* cls, const COSClient*) {
      cls->addMethod(partConstructor("lab.Native", MemberAccess::Protected, 1));
      cls->addProperty(new ValueProperty("Value", "lab.Native", MemberAccess::Public));
    });
    enter(info->implementedByHost(11));
  }
  ~NativeHeirs() override {
    session.close();
    EXPECT_EQ(Part::count, 0);
  }
  double valueOf(const Value& object) { return host::toDouble(get(object, "Value").get()); }
};

TEST_F(NativeHeirs, AnObjectThatASuperclassDeletesGetsNoNativePart) {
  ClassDefinition base = derive("lab.Base", {});
  base.constructor = constructor([this](const Call& call) { session.deleteObject(call.in(0)); });
  define(base);
  enter(new NativeClass("Heir", [](COSClass* cls, const COSClient*) {
    cls->addSuperclass(id("lab.Base"), 1, 0, 1);
    cls->addMethod(partConstructor("lab.Heir", MemberAccess::Public, 0));
  }));
  EXPECT_EQ(failure([&] { call("lab.Heir"); }), "KALVEX:class:InvalidHandle");
}

TEST_F(NativeHeirs, TheNativePartComesFromItsConstructorOrFromTheClassInfo) {
  define(derive("lab.Implicit", {"lab.Native"}));
  EXPECT_EQ(valueOf(call("lab.Implicit")), 11);
  EXPECT_EQ(valueOf(call("lab.Implicit", host::makeDouble(5))), 5);

  ClassDefinition explicitly = derive("lab.Explicit", {"lab.Native"});
  explicitly.constructor = constructor([](const Call& call) {
    const Value four = host::makeDouble(4);
    EXPECT_EQ(kcos::omGetArrayElement(call.in(0), 0)->getInstanceData(id("lab.Native")), nullptr)
        << "the class info isn't called during construction";
    host::constructSuperclass(call.in(0), "lab.Native", {four.get()});
  });
  define(explicitly);
  EXPECT_EQ(valueOf(call("lab.Explicit")), 4);
  EXPECT_EQ(failure([&] { call("lab.Native", host::makeDouble(1)); }),
            "KALVEX:class:AccessDenied | lab.Native | Native");
}

TEST_F(NativeHeirs, TheNativePartIsThereWhenABodyUsesIt) {
  ClassDefinition early = derive("lab.Early", {"lab.Native"});
  early.constructor = constructor([](const Call& call) {
    const Value value = host::getProperty(call.in(0), "Value");
    host::setSlot(call.in(0), "Value", host::makeDouble(host::toDouble(value.get()) + 1));
  });
  define(early);
  EXPECT_EQ(valueOf(call("lab.Early")), 12);
}

TEST_F(NativeHeirs, AConstructorThatFailsHalfWayLeavesNothing) {
  ClassDefinition fails = derive("lab.Fails", {"lab.Native"});
  fails.properties = {{"Data", [] { return host::makeCell({}); }, {}, {}, {}}};
  fails.constructor = constructor([](const Call& call) {
    const Value one = host::makeDouble(1);
    host::constructSuperclass(call.in(0), "lab.Native", {one.get()});
    host::setNativeValue(call.in(0), std::make_unique<Counted>());
    host::raise("KALVEX:CountTooLarge", {"2", "1"});
  });
  define(fails);
  const std::size_t before = session.liveObjects("lab.Fails");
  EXPECT_EQ(failure([&] { call("lab.Fails"); }), "KALVEX:CountTooLarge | 2 | 1");
  EXPECT_EQ(session.liveObjects("lab.Fails"), before);
  EXPECT_EQ(Part::count, 0);
  EXPECT_EQ(Counted::count, 0);
}

TEST_F(NativeHeirs, AClassHasOneNativeChain) {
  enter(new NativeClass("Second", [](COSClass*, const COSClient*) {}));
  EXPECT_EQ(failure([&] {
              define(derive("lab.Two", {"lab.Native", "lab.Second"}));
            }).substr(0, 63),
            "KALVEX:class:InvalidSuperclass | lab.Two | lab.Second | a class");
  EXPECT_EQ(failure([&] { call("lab.Two"); }), "KALVEX:UndefinedFunction | lab.Two");

  define(derive("lab.A", {"lab.Native", "lab.Late"}));
  define(derive("lab.Late", {"lab.Second"}));
  EXPECT_EQ(failure([&] { call("lab.A"); }).substr(0, 30), "KALVEX:class:InvalidSuperclass");
}

TEST_F(LanguageClasses, AbstractMethodsMustBeDefined) {
  ClassDefinition shape = derive("lab.Shape", {});
  shape.methods = {{.name = "area", .isAbstract = true}};
  define(shape);
  define(derive("lab.Blob", {"lab.Shape"}));
  EXPECT_EQ(failure([&] { call("lab.Shape"); }), "KALVEX:class:AbstractClass | lab.Shape | area");
  EXPECT_EQ(failure([&] { call("lab.Blob"); }), "KALVEX:class:AbstractClass | lab.Blob | area");
  ClassDefinition square = derive("lab.Square", {"lab.Shape"});
  square.methods = {{.name = "area", .body = says("4")}};
  define(square);
  EXPECT_EQ(said("area", call("lab.Square")), "4");
  define(derive("lab.Tile", {"lab.Shape", "lab.Square"}));
  EXPECT_EQ(said("area", call("lab.Tile")), "4") << "by a superclass that comes later";
}

TEST_F(LanguageClasses, SealedAndNativeNamesAreRefused) {
  ClassDefinition sealed = derive("lab.Sealed", {});
  sealed.isSealed = true;
  define(sealed);
  enter((new NativeClass("Stone", [](COSClass*, const COSClient*) {}))->sealed());
  EXPECT_EQ(failure([&] { define(derive("lab.Heir", {"lab.Sealed"})); }),
            "KALVEX:class:SealedClass | lab.Sealed");
  EXPECT_EQ(failure([&] { define(derive("lab.Heir", {"lab.Stone"})); }),
            "KALVEX:class:SealedClass | lab.Stone");
  EXPECT_EQ(failure([&] { define(derive("lab.Stone", {})); }),
            "KALVEX:class:SealedClass | lab.Stone");
  EXPECT_EQ(failure([&] { define(derive("KException", {})); }),
            "KALVEX:class:SealedClass | KException");
  EXPECT_EQ(failure([&] { define(derive("lab.Ring", {"lab.Ring"})); }).substr(0, 30),
            "KALVEX:class:InvalidSuperclass");
}

TEST_F(LanguageClasses, AreRedefinedOnceNoInstanceIsLeft) {
  define(derive("lab.Base", {}));
  define(derive("lab.Heir", {"lab.Base"}));
  Value object = call("lab.Heir");
  ClassDefinition again = derive("lab.Base", {});
  again.methods = {{.name = "who", .body = says("second")}};
  EXPECT_EQ(failure([&] { define(again); }), "KALVEX:class:HasInstances | lab.Base")
      << "objects of subclasses have its slots too";
  object = nullptr;
  define(again);
  EXPECT_EQ(said("who", call("lab.Heir")), "second");
}

TEST_F(LanguageClasses, AnObjectOwnsItsNativeValue) {
  define(derive("lab.Owner", {}));
  Value object = call("lab.Owner");
  host::setNativeValue(object.get(), std::make_unique<Counted>());
  EXPECT_NO_THROW(host::nativeValue<Counted>(object.get(), "counted"));
  host::setNativeValue(object.get(), std::make_unique<Counted>());
  EXPECT_EQ(Counted::count, 1);
  object = nullptr;
  EXPECT_EQ(Counted::count, 0);
}

TEST_F(LanguageClasses, AReadPropertyMayHoldADeletedObject) {
  ClassDefinition holder = derive("lab.Holder", {});
  holder.properties = {{"Target", nullptr, {}, {}, {}}};
  define(holder);
  const Value object = call("lab.Holder");
  set(object, "Target", call("lab.Holder"));
  session.deleteObject(get(object, "Target").get());
  const Value target = get(object, "Target");
  ASSERT_TRUE(kcos::omIsKCOS(target.get()));
  EXPECT_EQ(failure([&] { get(target, "Target"); }), "KALVEX:class:InvalidHandle");
}

TEST_F(LanguageClasses, ALongChainOfClassesIsLinkedWithoutRecursion) {
  const int depth = isStressed() ? 50 : 500;
  for (int i = 1; i <= depth; ++i) {
    define(derive("lab.Chain" + std::to_string(i), {"lab.Chain" + std::to_string(i - 1)}));
  }
  const std::string last = "lab.Chain" + std::to_string(depth);
  EXPECT_EQ(failure([&] { call(last); }), "KALVEX:UndefinedFunction | lab.Chain0");
  ClassDefinition root = derive("lab.Chain0", {});
  root.constructor = constructor(notes("root"), {1, 2});
  define(root);
  call(last, host::makeDouble(1));
  EXPECT_EQ(takeLog(), "root(1) ");
}

}  // namespace
}  // namespace kv::test
