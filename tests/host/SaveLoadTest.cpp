#include <array>
#include <cmath>
#include <filesystem>
#include <limits>

#include "HostSession.h"
#include "NativeClasses.h"

namespace kv::test {

namespace {

using namespace std::string_literals;

Value numbers(std::vector<std::size_t> dimensions, kxClassID id, unsigned char first) {
  Value array = matrix::from_kalvex(kxCreateNumericArray(dimensions, id));
  auto* bytes = static_cast<unsigned char*>(kxGetMutableData(array.get()));
  const std::size_t step = kxGetElementSize(id);
  for (std::size_t i = 0; i < kxGetNumberOfElements(array.get()); ++i) {
    bytes[i * step] = static_cast<unsigned char>(id == kxLOGICAL_CLASS ? i % 2 : first + i);
  }
  return array;
}

Value strings(std::size_t rows, std::size_t columns, std::u16string_view second) {
  Value array = Torvane::String::createStringArray(rows, columns);
  Torvane::String::setString(array.get(), 1, second);  // the others stay missing
  return array;
}

Value structure(Value a, Value b) {
  const std::string_view fields[] = {"a", "b"};
  Value array = matrix::from_kalvex(kxCreateStructMatrix(2, 1, fields));
  kxSetField(array.get(), 0, "a", a.release());
  kxSetField(array.get(), 1, "b", b.release());
  return array;
}

Value cell(std::initializer_list<const kxArray*> elements) {
  std::vector<Value> owned;
  for (const kxArray* element : elements) {
    owned.push_back(matrix::sharedCopy(element));
  }
  return host::makeCell(std::move(owned));
}

std::string bytesOf(const kxArray* value) {
  const std::size_t size = kxGetElementSize(kxGetClassID(value));
  return size == 0 || kxIsEmpty(value) ? ""
                                       : std::string(static_cast<const char*>(kxGetData(value)),
                                                     size * kxGetNumberOfElements(value));
}

/// Everything about a value but the identity of its objects.
std::string described(const kxArray* value) {
  if (value == nullptr) {
    return "null";
  }
  std::string text = kxGetClassName(value);
  for (const std::size_t extent : kxGetDimensions(value)) {
    text += " " + std::to_string(extent);
  }
  text += "{" + bytesOf(value) + host::callableName(value);
  const bool isStruct = kxGetClassID(value) == kxSTRUCT_CLASS;
  const std::size_t fields = isStruct ? kxGetNumberOfFields(value) : 1;
  for (std::size_t i = 0; i < kxGetNumberOfElements(value) * fields; ++i) {
    if (isStruct || kxGetClassID(value) == kxCELL_CLASS) {
      text += isStruct ? std::string(kxGetFieldName(value, i % fields)) + "=" : "";
      text += described(kxGetCell(value, i)) + ";";
    } else if (Torvane::String::isString(value)) {
      const auto element = Torvane::String::getString(value, i);
      text += element ? "'" +
                            std::string(reinterpret_cast<const char*>(element->data()),
                                        element->size() * 2) +
                            "'"
                      : "missing";
    }
  }
  return text + "}";
}

class SaveLoad : public HostSession {
 protected:
  Value reload(const Value& value, bool trusted = true) {
    return session.loadBytes(session.saveBytes(value.get()), trusted);
  }
  void defineNode() {
    ClassDefinition node;
    node.name = "lab.Node";
    node.properties = {
        {"Next", nullptr, {}, {}, {}},
        {"Label", [] { return host::makeDouble(7); }, {}, MemberAccess::Private, {}},
        {"Twice", nullptr, {}, {}, [](const Call& call) { call.out(0, host::makeDouble(2)); }}};
    node.constructor = MethodDefinition{.body = [this](const Call&) { ++constructed; }};
    define(node);
  }
  int constructed = 0;
};

TEST_F(SaveLoad, EveryKindOfValueComesBackAsItWas) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<Value> cases;
  for (int id = kxLOGICAL_CLASS; id <= kxUINT64_CLASS; ++id) {
    if (kxGetElementSize(static_cast<kxClassID>(id)) != 0) {
      cases.push_back(numbers({3, 2}, static_cast<kxClassID>(id), 60));
      cases.push_back(numbers({1, 1}, static_cast<kxClassID>(id), 200));
      cases.push_back(numbers({2, 3, 2}, static_cast<kxClassID>(id), 1));
      cases.push_back(numbers({0, 3}, static_cast<kxClassID>(id), 0));
    }
  }
  cases.push_back(host::makeDouble(nan));
  cases.push_back(host::makeDouble(-0.0));
  cases.push_back(matrix::createChars(std::u16string_view(u"caf\u00e9")));
  cases.push_back(matrix::createChars(std::u16string_view(u"\u03c0\U0001F600\xD800")));
  cases.push_back(host::makeChars(""));
  cases.push_back(matrix::create(std::u16string_view(u"a scalar")));
  cases.push_back(strings(2, 2, u"\u00ff"));
  cases.push_back(strings(3, 1, u"\u0100 wide"));
  cases.push_back(strings(2, 1, u""));
  cases.push_back(cell({}));
  cases.push_back(cell({nullptr, cases[0].get(), cell({cases.back().get()}).get()}));
  cases.push_back(structure(host::makeDouble(1), cell({nullptr})));
  cases.push_back(matrix::from_kalvex(kxCreateStructMatrix(0, 1, {})));
  cases.push_back(host::makeFunctionHandle("sin"));
  cases.push_back(nullptr);
  for (const Value& value : cases) {
    EXPECT_EQ(described(reload(value).get()), described(value.get()));
  }
}

TEST_F(SaveLoad, WhatIsSharedStaysSharedAndIsWrittenOnce) {
  const Value large = numbers({100, 10}, kxDOUBLE_CLASS, 0);
  const Value both = cell({large.get(), large.get()});
  const Value all = cell({both.get(), large.get(), both.get()});
  const std::string bytes = session.saveBytes(all.get());
  EXPECT_LT(bytes.size(), 2 * 8000u);
  const Value loaded = session.loadBytes(bytes, true);
  const kxArray* inner = kxGetCell(loaded.get(), 0);
  EXPECT_EQ(kxGetData(kxGetCell(inner, 0)), kxGetData(kxGetCell(inner, 1)));
  EXPECT_EQ(kxGetData(kxGetCell(inner, 0)), kxGetData(kxGetCell(loaded.get(), 1)));
  const Value a = host::makeDouble(1), b = host::makeDouble(2);
  EXPECT_EQ(session.saveBytes(cell({a.get(), b.get(), a.get(), b.get()}).get()).size(),
            session.saveBytes(cell({a.get(), b.get(), b.get(), b.get()}).get()).size());
}

TEST_F(SaveLoad, ObjectsKeepTheirCyclesAndNoConstructorRuns) {
  defineNode();
  const Value first = call("lab.Node");
  const Value second = call("lab.Node");
  set(first, "Next", second);
  set(second, "Next", cell({first.get(), second.get()}));
  set(second, "Label", host::makeDouble(9), "lab.Node");
  const int before = std::exchange(constructed, 0);
  EXPECT_EQ(before, 2);

  const Value loaded = reload(first);
  EXPECT_EQ(constructed, 0);
  const Value next = get(loaded, "Next");
  const Value nodes = get(next, "Next");
  EXPECT_EQ(kcos::omGetArrayElement(kxGetCell(nodes.get(), 0), 0).get(),
            kcos::omGetArrayElement(loaded.get(), 0).get());
  EXPECT_EQ(kcos::omGetArrayElement(kxGetCell(nodes.get(), 1), 0).get(),
            kcos::omGetArrayElement(next.get(), 0).get());
  EXPECT_NE(kcos::omGetArrayElement(next.get(), 0).get(),
            kcos::omGetArrayElement(second.get(), 0).get());
  EXPECT_EQ(host::toDouble(get(loaded, "Label").get()), 7);
  EXPECT_EQ(host::toDouble(get(next, "Label").get()), 9);
}

TEST_F(SaveLoad, NativePropertiesGoThroughSettersAndTheClassIsNotified) {
  int notified = 0;
  enter((new NativeClass("Number", [](COSClass* cls, const COSClient*) {
          cls->addMethod(partConstructor("lab.Number", MemberAccess::Private, 0));
          cls->addMethod(partConstructor("lab.Number", MemberAccess::Public, 1));
          cls->addProperty(new ValueProperty("Value", "lab.Number", MemberAccess::Private));
        }))->onLoaded([&](COSInterface* object) {
    ++notified;
    static_cast<Part*>(object->getInstanceData(id("lab.Number")))->value += 0.5;
  }));
  const Value loaded = reload(call("lab.Number", host::makeDouble(3)));
  EXPECT_EQ(host::toDouble(get(loaded, "Value").get()), 3.5);
  EXPECT_EQ(notified, 1);
}

/// A class that saves a record, and may make something else of it.
class Recorded final : public kcos::COSClassInfo {
 public:
  explicit Recorded(bool takesRecord) : takesRecord_(takesRecord) {}
  const char* getClassName() const override { return "Recorded"; }
  void initializeClass(COSClass* cls, const COSClient*) override {
    cls->addMethod(partConstructor("lab.Recorded", MemberAccess::Public, 0));
  }
  void* createInstanceData(COSInterface*) override { return nullptr; }
  void destroyInstanceData(const COSClient*, void* data) override {
    delete static_cast<Part*>(data);
  }
  bool customSave(kcos::COSInterfacePtr, kxArray*& record, kcos::COSInternedBase& type) override {
    const std::string_view fields[] = {"held"};
    record = kxCreateStructMatrix(1, 1, fields);
    kxSetField(record, 0, "held", host::call("lab.Held").release());
    type = id("any");
    return true;
  }
  bool customLoad(kcos::COSInterfacePtr& object, const kxArray* record,
                  kcos::COSInternedBase) override {
    const Value made = host::call("lab.Recorded");
    object = kcos::omGetArrayElement(made.get(), 0);
    if (takesRecord_) {
      kxAddParentRoot(
          kcos::omGetRootRecord(kcos::omGetArrayElement(kxGetField(record, 0, "held"), 0)),
          kcos::omGetRootRecord(object));
    }
    return true;
  }

 private:
  bool takesRecord_;
};

TEST_F(SaveLoad, WhatALoadedObjectDoesntHoldOfItsRecordIsNeitherFilledNorChecked) {
  for (const bool takesRecord : {true, false}) {
    host::Session writer;
    host::Session reader;
    std::string bytes;
    for (host::Session* each : {&writer, &reader}) {
      const host::Session::Scope inside(*each);
      kcos::omGetNamespace("lab")->addClass(new Recorded(takesRecord), 0, 2);
      ClassDefinition held;
      held.name = "lab.Held";
      held.properties = {{"Inner", nullptr, {}, {}, {}}};
      each->defineClass(std::make_shared<const ClassDefinition>(held));
    }
    {
      const host::Session::Scope inside(writer);
      ClassDefinition unknown;
      unknown.name = "lab.Unknown";
      writer.defineClass(std::make_shared<const ClassDefinition>(unknown));
      Value heldObject = host::call("lab.Held");
      writer.set(heldObject.get(), "Inner", host::call("lab.Unknown").get());
      writer.defineFunction(
          "lab.Held", [&](const Call& call) { call.out(0, matrix::sharedCopy(heldObject.get())); });
      const Value object = host::call("lab.Recorded");
      bytes = writer.saveBytes(cell({object.get(), object.get()}).get());
      heldObject = matrix::sharedCopy(object.get());
      EXPECT_EQ(failure([&] { writer.saveBytes(object.get()); }),
                "KALVEX:save:NotSaveable | lab.Recorded | its record leads back to itself");
    }
    const host::Session::Scope inside(reader);
    if (takesRecord) {
      EXPECT_EQ(failure([&] { reader.loadBytes(bytes, true); }),
                "KALVEX:load:UnknownClass | lab.Unknown");
    } else {
      const Value loaded = reader.loadBytes(bytes, true);
      EXPECT_EQ(kcos::omGetArrayElement(kxGetCell(loaded.get(), 0), 0).get(),
                kcos::omGetArrayElement(kxGetCell(loaded.get(), 1), 0).get());
    }
  }
}

struct Weight final : host::NativeValue {
  explicit Weight(double kilograms) : value(kilograms) {}
  double value;
};

TEST_F(SaveLoad, AClassDefinesHowItsCppValueIsSavedOrItsObjectsCantBe) {
  ClassDefinition definition;
  definition.name = "lab.Weight";
  define(definition);
  const Value object = call("lab.Weight");
  host::setNativeValue(object.get(), std::make_unique<Weight>(5));
  EXPECT_EQ(errorOf([&] { reload(object); }).identifier, "KALVEX:save:NotSaveable");

  definition.name = "lab.Kept";
  definition.savedForm = {
      .save =
          [](const kxArray* weight) {
            return host::makeDouble(host::nativeValue<Weight>(weight, "weight").value);
          },
      .restore =
          [](const kxArray* weight, const kxArray* saved) {
            host::setNativeValue(weight, std::make_unique<Weight>(host::toDouble(saved)));
          }};
  define(definition);
  const Value kept = call("lab.Kept");
  host::setNativeValue(kept.get(), std::make_unique<Weight>(6));
  EXPECT_EQ(host::nativeValue<Weight>(reload(kept).get(), "weight").value, 6);
}

TEST_F(SaveLoad, WhatCantBeLoadedIsRefusedByName) {
  defineNode();
  const std::string bytes = session.saveBytes(call("lab.Node").get());
  host::Session other;
  EXPECT_EQ(failure([&] { other.loadBytes(bytes, true); }), "KALVEX:load:UnknownClass | lab.Node");
  {
    const host::Session::Scope inside(other);
    ClassDefinition node;
    node.name = "lab.Node";
    other.defineClass(std::make_shared<const ClassDefinition>(node));
  }
  EXPECT_EQ(errorOf([&] { other.loadBytes(bytes, true); }).identifier, "KALVEX:load:Corrupt");
  EXPECT_EQ(other.liveObjects("lab.Node"), 0u);

  Value deep = cell({});
  for (int i = 0; i < 1000; ++i) {
    deep = cell({deep.get()});
  }
  EXPECT_EQ(errorOf([&] { reload(deep); }).identifier, "KALVEX:save:NotSaveable");
  deep = matrix::sharedCopy(kxGetCell(deep.get(), 0));
  EXPECT_EQ(kxGetClassID(reload(matrix::sharedCopy(kxGetCell(deep.get(), 0))).get()), kxCELL_CLASS);
  const Value gone = call("lab.Node");
  session.deleteObject(gone.get());
  EXPECT_EQ(failure([&] { reload(gone); }), "KALVEX:class:InvalidHandle");
  ClassDefinition hasty;
  hasty.name = "lab.Hasty";
  hasty.constructor =
      MethodDefinition{.body = [this](const Call& made) { session.saveBytes(made.in(0)); }};
  define(hasty);
  EXPECT_EQ(failure([&] { call("lab.Hasty"); }),
            "KALVEX:save:NotSaveable | lab.Hasty | it is still being made");
}

TEST_F(SaveLoad, WithoutTrustFunctionsAndGuardedMethodsRefuse) {
  session.defineFunction("hello", says("hello"));
  ClassDefinition runner;
  runner.name = "lab.Runner";
  runner.methods = {{.name = "run", .body = says("ran")}, {.name = "look", .body = says("looked")}};
  define(runner);
  session.guardMethod("lab.Runner", "run");
  const Value all = cell({host::makeFunctionHandle("hello").get(), call("lab.Runner").get()});

  const Value suspect = reload(all, false);
  const Value function = matrix::sharedCopy(kxGetCell(suspect.get(), 0));
  const Value object = matrix::sharedCopy(kxGetCell(suspect.get(), 1));
  EXPECT_EQ(failure([&] { call("feval", function); }), "KALVEX:load:NotTrusted | hello");
  EXPECT_EQ(failure([&] { call("run", object); }), "KALVEX:load:NotTrusted | lab.Runner");
  EXPECT_EQ(failure([&] { host::requireTrusted(object.get(), "this"); }),
            "KALVEX:load:NotTrusted | this");
  EXPECT_EQ(said("look", object), "looked");
  const Value copy = session.copyInstance(object.get());
  EXPECT_EQ(failure([&] { call("run", copy); }), "KALVEX:load:NotTrusted | lab.Runner");

  const Value vouched = session.loadBytes(session.saveBytes(suspect.get()), true);
  EXPECT_EQ(said("feval", kxGetCell(vouched.get(), 0)), "hello");
  EXPECT_EQ(said("run", kxGetCell(vouched.get(), 1)), "ran");
}

TEST_F(SaveLoad, ACallableComesBackAsANameThatTheProgramMustDefine) {
  session.load([&] { session.defineFunction("mine", says("a library's")); });
  const Value loaded = reload(host::makeFunctionHandle("mine", says("gone")));
  EXPECT_EQ(host::callableName(loaded.get()), "mine");
  const ErrorRecord error = errorOf([&] { call("feval", loaded); });
  EXPECT_EQ(error.identifier, "KALVEX:UndefinedFunction");
  EXPECT_EQ(error.arguments, std::vector<std::string>{"mine"});
  EXPECT_NE(error.message.find("define a function"), std::string::npos);
  session.defineFunction("mine", says("registered"));
  EXPECT_EQ(said("feval", loaded), "registered");
  EXPECT_EQ(said("feval", reload(loaded)), "registered");
}

TEST_F(SaveLoad, AFileHoldsWhatWasSaved) {
  const std::string path = std::filesystem::temp_directory_path() / "kvbigdata-save-load-test";
  const Value value = structure(host::makeDouble(4), strings(2, 1, u"two"));
  session.save(path, value.get());
  EXPECT_EQ(described(session.load(path, false).get()), described(value.get()));
  std::filesystem::remove(path);
  EXPECT_EQ(errorOf([&] { session.load(path, false); }).identifier, "KALVEX:load:CannotRead");
}

}  // namespace
}  // namespace kv::test
