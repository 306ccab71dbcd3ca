// What opening the sources of an array has read of them is a few rows. The steps that work row by
// row are recorded once more, on these rows alone, and evaluated: so they show exactly what they
// compute, and the array and its value stay as they are. A step that might call a user's function,
// needs other rows or was loaded without trust ends this, and then no rows are known.

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "closures.h"
#include "elementValues.h"
#include "handles.h"
#include "kv/elements.h"
#include "kv/runtime/timeValues.h"

namespace kv {

namespace {

/// With more steps, the rows aren't shown: looking at an array is quick.
constexpr std::size_t kMostSteps = 500;

constexpr std::string_view kReadOperation = "kalvex.bigdata.internal.lazyeval.ReadOperation";

/// Steps that are built in, and work row by row if their function does.
constexpr std::string_view kRowSteps[] = {
    "kalvex.bigdata.internal.lazyeval.ElementwiseOperation",
    "kalvex.bigdata.internal.lazyeval.LogicalElementwiseOperation",
    "kalvex.bigdata.internal.lazyeval.FilterOperation",
    "kalvex.bigdata.internal.lazyeval.HeadOperation",
    "kalvex.bigdata.internal.lazyeval.SubsrefTabularVarOperation",
};
constexpr std::string_view kWithFunction = "ElementwiseOperation";
constexpr std::string_view kFunctions[] = {"kv.element.", "kv.rows."};

bool isRowStep(const kxArray* operation) {
  const std::string name = kxGetClassName(operation);
  if (std::ranges::find(kRowSteps, name) == std::end(kRowSteps) || !host::isTrusted(operation)) {
    return false;
  }
  if (!name.ends_with(kWithFunction)) {
    return true;
  }
  const host::Value function = host::getProperty(operation, "FunctionHandle");
  const std::string called = host::callableName(host::getProperty(function.get(), "Handle").get());
  return std::ranges::any_of(kFunctions,
                             [&](std::string_view prefix) { return called.starts_with(prefix); });
}

/// An array that reads the first rows of a source, or of a value; null if none are known.
host::Value readFirst(const kxArray* source) {
  const host::Value rows = host::call("kv.firstRows", {source});
  return kxIsEmpty(rows.get()) ? nullptr : host::call("createFromDatastoreBuiltin", {rows.get()});
}

/// Arrays of the first rows alone, by the promise of what they show.
class FirstRows {
 public:
  /// Null if the rows aren't known.
  const kxArray* of(const kxArray* array) {
    std::vector<host::Value> waiting;
    waiting.push_back(promiseOfArray(array));
    const auto* const last = objectIn(waiting.back().get());
    while (!waiting.empty()) {
      if (made_.size() + waiting.size() > kMostSteps) {
        return nullptr;
      }
      const kxArray* promise = waiting.back().get();
      if (made_.contains(objectIn(promise)) || !addInputs(promise, waiting)) {
        make(promise);
        waiting.pop_back();
      }
    }
    return made_.at(last).get();
  }

 private:
  /// Adds those inputs of the step of a promise that aren't made. False if there are none.
  bool addInputs(const kxArray* promise, std::vector<host::Value>& waiting) const {
    if (isDone(promise)) {
      return false;
    }
    const std::size_t before = waiting.size();
    for (host::Value& input : inputsOf(closureOf(promise).get())) {
      if (!made_.contains(objectIn(input.get()))) {
        waiting.push_back(std::move(input));
      }
    }
    return waiting.size() > before;
  }

  void make(const kxArray* promise) {
    if (!made_.contains(objectIn(promise))) {
      made_.emplace(objectIn(promise), isDone(promise) ? known(promise) : recorded(promise));
    }
  }

  /// Of one row as it is: it goes with all rows.
  static host::Value known(const kxArray* promise) {
    const host::Value future = host::getProperty(promise, "Future");
    const host::Value value = host::getProperty(future.get(), "Value");
    return kxGetM(runtime::shapedElements(value.get())) == 1
               ? host::call("createFromConstantBuiltin", {value.get()})
               : readFirst(value.get());
  }

  host::Value recorded(const kxArray* promise) const {
    const host::Value closure = closureOf(promise);
    const host::Value operation = host::getProperty(closure.get(), "Operation");
    if (kxGetClassName(operation.get()) == kReadOperation && host::isTrusted(operation.get())) {
      return readFirst(host::getProperty(operation.get(), "Datastore").get());
    }
    CallInputs inputs;
    inputs.lend(operation.get());
    for (const host::Value& input : inputsOf(closure.get())) {
      const host::Value& array = made_.at(objectIn(input.get()));
      if (array == nullptr) {
        return nullptr;
      }
      inputs.lend(array);
    }
    if (!isRowStep(operation.get())) {
      return nullptr;
    }
    const auto output =
        static_cast<std::size_t>(host::toDouble(host::getProperty(promise, "ArgoutIndex").get()));
    std::vector<host::Value> outputs =
        host::callMany("applyOperationBuiltin", static_cast<int>(output), inputs.list());
    return std::move(outputs.at(output - 1));
  }

  std::map<const kcos::COSInterface*, host::Value> made_;
};

std::vector<std::optional<Elements>> evaluate(std::span<const Array> arrays) {
  FirstRows rows;
  CallInputs known;
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < arrays.size(); ++i) {
    if (const kxArray* array = rows.of(arrays[i].handle().value.get())) {
      known.lend(array);
      places.push_back(i);
    }
  }
  std::vector<std::optional<Elements>> found(arrays.size());
  if (places.empty()) {
    return found;
  }
  std::vector<host::Value> values =
      host::callMany("gather", static_cast<int>(places.size()), known.list());
  for (std::size_t i = 0; i < places.size(); ++i) {
    const Array& array = arrays[places[i]];
    const std::string_view type = runtime::elementTypeName(array.handle().type);
    found[places[i]] = toElements(std::move(values[i]), type, array.trailing(), array.isScalar());
  }
  return found;
}

}  // namespace

std::vector<std::optional<Elements>> firstRows(std::span<const Array> arrays, Where where) {
  const auto session = sessionOf(arrays);
  try {
    return publicCall(*session, where, [&] { return evaluate(arrays); });
  } catch (const Error&) {  // what can't be computed of these rows shows when it is computed
    return std::vector<std::optional<Elements>>(arrays.size());
  }
}

}  // namespace kv
