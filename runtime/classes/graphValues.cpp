// Two small classes of the host's library that ClosureGraph needs to show a lazy graph:
// categorical and digraph.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "foundation/i18n.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

constexpr char kCategorical[] = "categorical";

/// The texts of a string array; empty for missing ones.
std::vector<std::optional<std::string>> elementsOf(const kxArray* strings) {
  std::vector<std::optional<std::string>> elements;
  for (std::size_t i = 0; i < kxGetNumberOfElements(strings); ++i) {
    const auto text = Torvane::String::getString(strings, i);
    elements.push_back(text ? std::optional(fl::i18n::to_string(*text)) : std::nullopt);
  }
  return elements;
}

/// categorical(strings): "Categories" are the distinct texts in ascending order, "Codes" the number
/// of each element's category, counted from 1; 0 means undefined.
void constructCategorical(const Call& call) {
  if (!Torvane::String::isString(call.in(1))) {
    host::raiseInvalidType("Input", "string", call.in(1));
  }
  const auto elements = elementsOf(call.in(1));
  std::map<std::string, double> codes;
  for (const auto& element : elements) {
    if (element) {
      codes.emplace(*element, 0);
    }
  }
  std::vector<std::string> categories;
  for (auto& [category, code] : codes) {
    categories.push_back(category);
    code = static_cast<double>(categories.size());
  }
  Value numbers =
      matrix::from_kalvex(kxCreateNumericArray(kxGetDimensions(call.in(1)), kxDOUBLE_CLASS));
  std::ranges::transform(elements, static_cast<double*>(kxGetMutableData(numbers.get())),
                         [&](const auto& element) { return element ? codes.at(*element) : 0; });
  host::setSlot(call.in(0), "Categories", host::makeStringColumn(categories));
  host::setSlot(call.in(0), "Codes", std::move(numbers));
}

/// isundefined(categorical)
void isUndefined(const Call& call) {
  const Value codes = host::getSlot(call.in(0), "Codes");
  Value flags =
      matrix::from_kalvex(kxCreateNumericArray(kxGetDimensions(codes.get()), kxLOGICAL_CLASS));
  const auto* code = static_cast<const double*>(kxGetData(codes.get()));
  std::transform(code, code + kxGetNumberOfElements(codes.get()),
                 static_cast<bool*>(kxGetMutableData(flags.get())),
                 [](double number) { return number == 0; });
  call.out(0, std::move(flags));
}

/// string(categorical): the texts; an undefined element is missing.
void toStrings(const Call& call) {
  const Value codes = host::getSlot(call.in(0), "Codes");
  const Value categories = host::getSlot(call.in(0), "Categories");
  Value strings = Torvane::String::createStringArray(kxGetM(codes.get()), kxGetN(codes.get()));
  const auto* code = static_cast<const double*>(kxGetData(codes.get()));
  for (std::size_t i = 0; i < kxGetNumberOfElements(codes.get()); ++i) {
    if (code[i] > 0) {
      const auto category = static_cast<std::size_t>(code[i]) - 1;
      Torvane::String::setString(strings.get(), i,
                                 *Torvane::String::getString(categories.get(), category));
    }
  }
  call.out(0, std::move(strings));
}

bool areCodes(const kxArray* codes, double count) {
  if (kxGetClassID(codes) != kxDOUBLE_CLASS || kxGetDimensions(codes).size() != 2) {
    return false;
  }
  const auto* code = static_cast<const double*>(kxGetData(codes));
  return std::all_of(code, code + kxGetNumberOfElements(codes), [count](double number) {
    return number >= 0 && number <= count && std::trunc(number) == number;
  });
}

/// Methods look up categories by code.
void checkLoadedCategorical(const kxArray* categorical) {
  const auto categories = host::toTexts(host::getSlot(categorical, "Categories").get());
  const Value codes = host::getSlot(categorical, "Codes");
  if (!areCodes(codes.get(), static_cast<double>(categories.size()))) {
    host::raiseInvalidType("Input", "double codes of categories", codes.get());
  }
}

Value columnOf(const kxArray* table, std::string_view name) {
  const Value text = host::makeString(name);
  return host::call("column", {table, text.get()});
}

/// digraph(edges, nodes): tables with the columns "EndNodes", e-by-2 names of source and target,
/// and "Name".
void constructDigraph(const Call& call) {
  const Value ends = columnOf(call.in(1), "EndNodes");
  const Value names = columnOf(call.in(2), "Name");
  const auto known = elementsOf(names.get());
  const std::set<std::optional<std::string>> nodes(known.begin(), known.end());
  for (const auto& end : elementsOf(ends.get())) {
    if (!nodes.contains(end)) {
      host::raise("KALVEX:digraph:UnknownNode", {end.value_or("<missing>")});
    }
  }
  host::setSlot(call.in(0), "Edges", matrix::sharedCopy(call.in(1)));
  host::setSlot(call.in(0), "Nodes", matrix::sharedCopy(call.in(2)));
}

/// The number of rows of a table in a property.
host::NativeBody heightOf(kcos::NameRef property) {
  return [property](const Call& call) {
    const Value table = host::getProperty(call.in(0), property);
    call.out(0, host::getProperty(table.get(), "Height"));
  };
}

}  // namespace

void defineGraphValues(host::Session& session) {
  define(session,
         {.name = kCategorical,
          .properties = {readOnly("Categories"), readOnly("Codes")},
          .constructor = constructor(constructCategorical, 2, 2),
          .methods = {method("isundefined", isUndefined, 1, 1), method("string", toStrings, 1, 1)},
          .savedForm = checkedOnLoad(checkLoadedCategorical)});
  define(session, {.name = "digraph",
                   .properties = {readOnly("Edges"), readOnly("Nodes")},
                   .constructor = constructor(constructDigraph, 3, 3),
                   .methods = {method("numnodes", heightOf("Nodes"), 1, 1),
                               method("numedges", heightOf("Edges"), 1, 1)}});
}

}  // namespace kv::runtime
