#include "driver/builtInFunctions.h"

#include <fmt/core.h>

#include <string_view>

#include "kv/host/freeFunctions.h"
#include "kv/runtime/functionNames.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

constexpr std::string_view kElementPrefix = "kv.element.";
constexpr std::string_view kAggregatePrefix = "kv.aggregate.";
constexpr std::string_view kPropagateSuffix = ".propagate";
constexpr std::string_view kWholeSuffix = ".whole";
constexpr std::string_view kRowsSuffix = ".rows";

/// Removes `suffix` from `name`; false if it doesn't end with it.
bool takeSuffix(std::string_view& name, std::string_view suffix) {
  const bool isThere = name.ends_with(suffix);
  name.remove_suffix(isThere ? suffix.size() : 0);
  return isThere;
}

}  // namespace

std::string elementFunctionName(std::string_view function) {
  return std::string(kElementPrefix).append(function);
}

std::string aggregateFunctionName(std::string_view aggregate, const AggregateForm& form) {
  std::string name(kAggregatePrefix);
  name.append(aggregate);
  name.append(form.missing == MissingRule::Propagate ? kPropagateSuffix : "");
  name.append(form.isWhole ? kWholeSuffix : "");
  return name.append(form.needsRows ? kRowsSuffix : "");
}

BuiltInFunction builtInFunction(const kxArray* handle) {
  BuiltInFunction function;
  if (kxGetClassID(handle) != kxFUNCTION_CLASS) {
    return function;
  }
  const std::string name = host::functionName(handle);
  std::string_view rest = name;
  if (rest.starts_with(kElementPrefix)) {
    function.element = findElementFunction(rest.substr(kElementPrefix.size()));
  } else if (rest.starts_with(kAggregatePrefix)) {
    rest.remove_prefix(kAggregatePrefix.size());
    function.form.needsRows = takeSuffix(rest, kRowsSuffix);
    function.form.isWhole = takeSuffix(rest, kWholeSuffix);
    function.form.missing =
        takeSuffix(rest, kPropagateSuffix) ? MissingRule::Propagate : MissingRule::Skip;
    function.aggregate = findAggregateFunction(rest);
    function.group = findGroupFunction(rest);
  }
  return function;
}

bool isBuiltInHandle(const kxArray* functionHandle) {
  return kxIsA(functionHandle, kFunctionHandle) &&
         builtInFunction(host::getProperty(functionHandle, "Handle").get()) != BuiltInFunction{};
}

bool isFreeFunction(const kxArray* handle) {
  return host::callMode(handle) == host::CallMode::AnyThread ||
         builtInFunction(handle) != BuiltInFunction{};
}

std::string functionName(const kxArray* handle) {
  return kxGetClassID(handle) == kxFUNCTION_CLASS ? host::callableName(handle) : std::string();
}

std::string functionLabel(const kxArray* handle) {
  if (kxGetClassID(handle) != kxFUNCTION_CLASS) {
    return kxGetClassName(handle);
  }
  const BuiltInFunction function = builtInFunction(handle);
  if (function.element != nullptr) {
    return std::string(function.element->name);
  }
  if (function.group != nullptr) {
    return fmt::format(
        "{}{}{}", function.group->name, function.form.isWhole ? " of all columns" : "",
        function.form.missing == MissingRule::Propagate ? " (missing propagate)" : "");
  }
  const std::string name = host::callableName(handle);
  if (name == kRandomRowsFunction) {
    return "rand";
  }
  return name.empty() ? "a function" : name;
}

}  // namespace kv::runtime
