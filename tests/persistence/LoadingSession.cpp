#include "LoadingSession.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <vector>

#include "ki/createManagedObject.h"
#include "kx/string.h"

namespace kv::test {

using bigdata::lazyeval::FuturePtr;
using host::Call;
using host::ClassDefinition;
using host::MethodDefinition;

namespace {

constexpr auto kArrayClass = "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";
constexpr std::size_t kClosures = 28;

/// What loading may call on the host side, besides the release and an invalid array.
constexpr std::array<std::string_view, 2> kAsked{
    "keepAlive", "kalvex.bigdata.internal.executor.PartitionedArrayExecutor.default"};

/// A ramp over the bytes of an array, so that no two neighbouring elements are equal.
Value ramp(std::initializer_list<std::size_t> dimensions, kxClassID id) {
  Value array = matrix::from_kalvex(
      kxCreateNumericArray(std::span(dimensions.begin(), dimensions.size()), id));
  auto* bytes = static_cast<unsigned char*>(kxGetMutableData(array.get()));
  const std::size_t count = kxGetNumberOfElements(array.get()) * kxGetElementSize(id);
  std::iota(bytes, bytes + count, static_cast<unsigned char>(1));
  return array;
}

Value texts() {
  Value array = Torvane::String::createStringArray(2, 2);
  Torvane::String::setString(array.get(), 0, u"");
  Torvane::String::setString(array.get(), 1, u"narrow");
  Torvane::String::setString(array.get(), 2, u"wide \u03c0 \U0001f40b");
  return array;  // the last one is missing
}

Value cellOf(std::initializer_list<Value> elements) {
  std::vector<Value> copies;
  for (const Value& element : elements) {
    copies.push_back(matrix::sharedCopy(element.get()));
  }
  return host::makeCell(std::move(copies));
}

}  // namespace

Value makeRecord(std::initializer_list<std::pair<std::string_view, Value>> fields) {
  std::vector<std::string_view> names;
  for (const auto& field : fields) {
    names.push_back(field.first);
  }
  Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, names));
  for (const auto& [name, value] : fields) {
    kxSetField(record.get(), 0, name, matrix::sharedCopy(value.get()).release());
  }
  return record;
}

LoadingSession::LoadingSession() {
  session.defineFunction("version", [](const Call& c) { c.out(0, host::makeChars("7.2")); });
  completeArrays();
  defineUsersClasses();
  takeUserCalls();
}

void LoadingSession::completeArrays() {
  const auto invalid = std::make_shared<Value>(lazyArray(constant(0)));
  auto completion = std::make_shared<host::ClassCompletion>();
  completion->name = kArrayClass;
  completion->methods.push_back(
      {.name = "createInvalidVersionArray",
       .body = [invalid](const Call& c) { c.out(0, matrix::sharedCopy(invalid->get())); },
       .isStatic = true});
  session.completeClass(completion);
}

void LoadingSession::defineUsersClasses() {
  const auto counted = [this](const Call& c) {
    ++userCalls_;
    for (int i = 0; i < c.nlhs; ++i) {
      c.out(i, host::makeDouble(0));
    }
  };
  session.defineFunction("user.function", counted);
  auto thing = std::make_shared<ClassDefinition>();
  thing->name = "user.Thing";
  thing->properties = {{.name = "Next"}, {.name = "Data"}, {.name = "Seen", .compute = counted}};
  thing->constructor = MethodDefinition{.name = "Thing", .body = counted};
  thing->methods = {{.name = "run", .body = counted}, {.name = "delete", .body = counted}};
  session.defineClass(thing);
  auto special = std::make_shared<ClassDefinition>();
  special->name = "user.SpecialThing";
  special->superclasses = {"user.Thing"};
  session.defineClass(special);
}

Value LoadingSession::plainValues() {
  Value numbers = ramp({7, 9}, kxDOUBLE_CLASS);
  auto* data = static_cast<double*>(kxGetMutableData(numbers.get()));
  data[0] = -0.0;
  data[1] = std::numeric_limits<double>::quiet_NaN();
  data[2] = std::numeric_limits<double>::infinity();
  return makeRecord({
      {"Numbers", std::move(numbers)},
      {"Singles", ramp({3, 5, 2}, kxSINGLE_CLASS)},
      {"Bytes", ramp({1, 200}, kxUINT8_CLASS)},
      {"Integers", cellOf({ramp({1, 3}, kxINT8_CLASS), ramp({3, 1}, kxINT16_CLASS),
                           ramp({2, 2}, kxUINT16_CLASS), ramp({1, 4}, kxINT32_CLASS),
                           ramp({1, 5}, kxUINT32_CLASS), ramp({6, 1}, kxINT64_CLASS),
                           ramp({1, 1}, kxUINT64_CLASS)})},
      {"Empty", cellOf({ramp({0, 3}, kxDOUBLE_CLASS), host::makeCell({}), host::makeChars(""),
                        ramp({4, 0, 2}, kxINT8_CLASS), nullptr})},
      {"Flag", host::makeLogical(true)},
      {"Chars", host::makeChars("narrow characters")},
      {"WideChars", host::makeChars("\u03bc\u03b5\u03b3\u03ac\u03bb\u03b1")},
      {"Texts", texts()},
      {"Named", host::makeFunctionHandle("user.function")},
      {"Callable", host::makeFunctionHandle("user.callable", [](const Call&) {})},
  });
}

/// Two objects that refer to each other, an array of them, and shared values.
Value LoadingSession::usersObjects() {
  const Value first = call("user.Thing");
  const Value second = call("user.SpecialThing");
  const Value shared = ramp({40, 20}, kxDOUBLE_CLASS);
  session.set(first.get(), "Next", second.get());
  session.set(second.get(), "Next", first.get());
  session.set(first.get(), "Data", shared.get());
  session.set(second.get(), "Data", shared.get());
  Value things = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(1, 3, kcos::internal::makeInterned("user.Thing")));
  kcos::omSetArrayElement(things.get(), 0, kcos::omGetArrayElement(first.get(), 0));
  kcos::omSetArrayElement(things.get(), 1, kcos::omGetArrayElement(second.get(), 0));
  return things;
}

Value LoadingSession::chain(std::size_t closures) {
  FuturePtr last = constant(1);
  for (std::size_t i = 0; i < closures; ++i) {
    last = future(closure({last}));
    calls.clear();
  }
  return lazyArray(last);
}

/// A chain, and a closure with three outputs and two readers.
Value LoadingSession::arrays() {
  const auto source = closure({constant(2), constant(3)}, 3);
  const auto reader = closure({future(source, 0), future(source, 2), future(source, 0)});
  return cellOf({chain(kClosures), lazyArray(future(reader)), lazyArray(future(source, 1))});
}

Value LoadingSession::graph() {
  Value all =
      makeRecord({{"Plain", plainValues()}, {"Things", usersObjects()}, {"Arrays", arrays()}});
  takeUserCalls();
  return all;
}

std::string LoadingSession::outcomeOf(std::string_view bytes) {
  const std::string error = bigdata::errorOf([&] { load(bytes); });
  return error == "no error" ? "loaded" : error;
}

std::size_t LoadingSession::takeUserCalls() {
  const auto isStrange = [](const HostCall& call) {
    return std::ranges::find(kAsked, call.name) == kAsked.end();
  };
  const auto strange = static_cast<std::size_t>(std::ranges::count_if(calls, isStrange));
  calls.clear();
  return strange + std::exchange(userCalls_, 0);
}

}  // namespace kv::test
