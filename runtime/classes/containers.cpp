// Just enough of containers.Map and table for the core, which builds both while it plans and draws
// graphs. Both are language classes, so user code can read them and they can be saved.

#include <fmt/core.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/errors/shownText.h"
#include "kv/host/errors.h"
#include "kv/runtime/timeValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// The position of each key's value in the cell of values.
struct MapIndex final : host::NativeValue {
  std::unordered_map<std::string, std::size_t> positions;
};

MapIndex& indexOf(const kxArray* map) {
  return host::nativeValue<MapIndex>(map, "scalar containers.Map");
}

[[noreturn]] void raiseCountMismatch(const char* id, std::size_t first, std::size_t second) {
  host::raise(id, {std::to_string(first), std::to_string(second)});
}

void requireCell(const kxArray* value) {
  if (kxGetClassID(value) != kxCELL_CLASS) {
    host::raiseInvalidType("Input", "cell", value);
  }
}

Value cellIn(const kxArray* object, kcos::NameRef property) {
  Value cell = host::getSlot(object, property);
  requireCell(cell.get());
  return cell;
}

/// Fills a map. A repeated key keeps its position and takes the later value.
void fillMap(const kxArray* map, const std::vector<std::string>& keys, const kxArray* values) {
  auto index = std::make_unique<MapIndex>();
  std::vector<std::string> distinct;
  std::vector<Value> held;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    Value value = matrix::sharedCopy(kxGetCell(values, i));
    const auto [known, isNew] = index->positions.emplace(keys[i], distinct.size());
    if (isNew) {
      distinct.push_back(keys[i]);
      held.push_back(std::move(value));
    } else {
      held[known->second] = std::move(value);
    }
  }
  host::setSlot(map, "Keys", host::makeStringColumn(distinct));
  host::setSlot(map, "Values", host::makeCell(std::move(held)));
  host::setNativeValue(map, std::move(index));
}

/// containers.Map(keys, values): keys are texts, values is a cell with one entry per key.
void constructMap(const Call& call) {
  const std::vector<std::string> keys =
      call.nrhs > 1 ? host::toTexts(call.in(1)) : std::vector<std::string>{};
  if (call.nrhs > 2) {
    requireCell(call.in(2));
  }
  const std::size_t count = call.nrhs > 2 ? kxGetNumberOfElements(call.in(2)) : 0;
  if (keys.size() != count) {
    raiseCountMismatch("KALVEX:Containers:CountMismatch", keys.size(), count);
  }
  fillMap(call.in(0), keys, call.nrhs > 2 ? call.in(2) : nullptr);
}

void restoreMap(const kxArray* map, const kxArray* /*saved*/) {
  const std::vector<std::string> keys = host::toTexts(host::getSlot(map, "Keys").get());
  const Value values = keys.empty() ? Value() : cellIn(map, "Values");
  const std::size_t count = kxGetNumberOfElements(values.get());
  if (keys.size() != count) {
    raiseCountMismatch("KALVEX:Containers:CountMismatch", keys.size(), count);
  }
  fillMap(map, keys, values.get());
}

/// lookup(map, key)
void lookup(const Call& call) {
  const auto& positions = indexOf(call.in(0)).positions;
  const std::string key = host::toText(call.in(1));
  const auto found = positions.find(key);
  if (found == positions.end()) {
    host::raise("KALVEX:Containers:NoKey", {key});
  }
  const Value values = host::getSlot(call.in(0), "Values");
  call.out(0, matrix::sharedCopy(kxGetCell(values.get(), found->second)));
}

void isKey(const Call& call) {
  call.out(0, host::makeLogical(indexOf(call.in(0)).positions.contains(host::toText(call.in(1)))));
}

void slotOut(const Call& call, kcos::NameRef name) { call.out(0, host::getSlot(call.in(0), name)); }

void count(const Call& call) {
  call.out(0, host::makeDouble(static_cast<double>(indexOf(call.in(0)).positions.size())));
}

bool isText(const kxArray* value) {
  return kxGetClassID(value) == kxCHAR_CLASS ||
         (Torvane::String::isString(value) && kxIsScalar(value));
}

/// Number of rows of a column; for a categorical, its number of elements.
std::size_t heightOf(const kxArray* column) {
  if (kxIsA(column, "categorical")) {
    return kxGetM(host::getProperty(column, "Codes").get());
  }
  return kxGetM(shapedElements(column));
}

/// table(column, ..., "VariableNames", names): columns of the same length, one name per column.
void constructTable(const Call& call) {
  int columns = call.nrhs - 1;
  std::vector<std::string> names;
  if (columns >= 2 && isText(call.in(columns - 1)) &&
      host::toText(call.in(columns - 1)) == "VariableNames") {
    names = host::toTexts(call.in(columns));
    columns -= 2;
  }
  for (int i = static_cast<int>(names.size()); i < columns; ++i) {
    names.push_back(fmt::format("Var{}", i + 1));
  }
  std::vector<Value> values;
  for (int i = 1; i <= columns; ++i) {
    if (heightOf(call.in(i)) != heightOf(call.in(1))) {
      raiseCountMismatch("KALVEX:table:UnequalHeights", heightOf(call.in(1)), heightOf(call.in(i)));
    }
    values.push_back(matrix::sharedCopy(call.in(i)));
  }
  if (names.size() != values.size()) {
    raiseCountMismatch("KALVEX:table:CountMismatch", names.size(), values.size());
  }
  host::setSlot(call.in(0), "Height",
                host::makeDouble(columns > 0 ? static_cast<double>(heightOf(call.in(1))) : 0));
  host::setSlot(call.in(0), "VariableNames", host::makeStringRow(names));
  host::setSlot(call.in(0), "Columns", host::makeCell(std::move(values)));
}

/// column(table, name)
void tableColumn(const Call& call) {
  const std::vector<std::string> names =
      host::toTexts(host::getSlot(call.in(0), "VariableNames").get());
  const std::string name = host::toText(call.in(1));
  const Value columns = host::getSlot(call.in(0), "Columns");
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) {
      call.out(0, matrix::sharedCopy(kxGetCell(columns.get(), i)));
      return;
    }
  }
  host::raise("KALVEX:array:UnknownColumn", {name, errors::shownNames(names)});
}

void checkLoadedTable(const kxArray* table) {
  const std::size_t names = host::toTexts(host::getSlot(table, "VariableNames").get()).size();
  const Value columns = cellIn(table, "Columns");
  const std::size_t count = kxGetNumberOfElements(columns.get());
  if (names != count) {
    raiseCountMismatch("KALVEX:table:CountMismatch", names, count);
  }
  const double height = host::toDouble(host::getSlot(table, "Height").get());
  for (std::size_t i = 0; i < count; ++i) {
    const kxArray* column = kxGetCell(columns.get(), i);
    if (column == nullptr) {
      host::raiseInvalidType("Input", "column", column);
    }
    // An object knows its height only when it has been filled, which may happen later.
    if (!kcos::omIsKCOS(column) && static_cast<double>(kxGetM(column)) != height) {
      raiseCountMismatch("KALVEX:table:UnequalHeights", static_cast<std::size_t>(height),
                         kxGetM(column));
    }
  }
}

}  // namespace

void defineContainers(host::Session& session) {
  define(
      session,
      {.name = "containers.Map",
       .properties = {readOnly("Keys"),
                      readOnly("Values"),
                      {.name = "Count", .setAccess = host::MemberAccess::None, .compute = count}},
       .constructor = constructor(constructMap, 1, 3),
       .methods = {method("lookup", lookup, 2, 2), method("isKey", isKey, 2, 2),
                   method(
                       "keys", [](const Call& call) { slotOut(call, "Keys"); }, 1, 1),
                   method(
                       "values", [](const Call& call) { slotOut(call, "Values"); }, 1, 1)},
       .savedForm = host::SavedForm{[](const kxArray*) { return Value(); }, restoreMap}});
  define(session,
         {.name = "table",
          .properties = {readOnly("Height"), readOnly("VariableNames"), readOnly("Columns")},
          .constructor = constructor(constructTable, 1, -1),
          .methods = {method("column", tableColumn, 2, 2)},
          .savedForm = checkedOnLoad(checkLoadedTable)});
}

}  // namespace kv::runtime
