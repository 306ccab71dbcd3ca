#include "engine/OpSpec.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>

#include "foundation/i18n.h"
#include "kv/runtime/functionNames.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

constexpr std::string_view kElementPrefix = "kv.element.";
constexpr std::string_view kAggregatePrefix = "kv.aggregate.";
constexpr std::string_view kPropagateSuffix = ".propagate";

/// No file system has longer names; many operations may share a stack.
constexpr std::size_t kLongestFileName = 255;

std::string fileNameIn(const kxArray* path) {
  std::u16string_view text = kxGetChars(path);
  text.remove_prefix(text.size() - std::min(text.size(), kLongestFileName + 1));
  return fl::i18n::to_string(text.substr(text.find_last_of(u'/') + 1));
}

}  // namespace

std::string elementFunctionName(std::string_view function) {
  return fmt::format("{}{}", kElementPrefix, function);
}

std::string aggregateFunctionName(std::string_view aggregate, MissingRule missing) {
  return fmt::format("{}{}{}", kAggregatePrefix, aggregate,
                     missing == MissingRule::Propagate ? kPropagateSuffix : "");
}

std::string describe(const OpSpec& spec) {
  return spec.origin.empty() ? spec.label : fmt::format("{} at {}", spec.label, spec.origin);
}

std::string originOf(const kxArray* stack) {
  if (kxGetClassID(stack) != kxSTRUCT_CLASS || kxIsEmpty(stack)) {
    return {};
  }
  const kxArray* file = kxGetField(stack, 0, "file");
  const kxArray* line = kxGetField(stack, 0, "line");
  const bool isText = kxGetClassID(file) == kxCHAR_CLASS && kxGetM(file) <= 1;
  if (!isText || !kxIsNumeric(line) || !kxIsScalar(line)) {
    return {};
  }
  return fmt::format("{}:{:.0f}", fileNameIn(file), kxGetScalar(line));
}

OpFunction builtInFunction(const kxArray* handle) {
  OpFunction function;
  if (kxGetClassID(handle) != kxFUNCTION_CLASS) {
    return function;
  }
  const std::string name = host::functionName(handle);
  std::string_view rest = name;
  if (rest.starts_with(kElementPrefix)) {
    function.element = findElementFunction(rest.substr(kElementPrefix.size()));
  } else if (rest.starts_with(kAggregatePrefix)) {
    rest.remove_prefix(kAggregatePrefix.size());
    if (rest.ends_with(kPropagateSuffix)) {
      rest.remove_suffix(kPropagateSuffix.size());
      function.missing = MissingRule::Propagate;
    }
    function.aggregate = findAggregateFunction(rest);
  }
  return function;
}

bool isBuiltInHandle(const kxArray* functionHandle) {
  return kxIsA(functionHandle, kFunctionHandle) &&
         builtInFunction(host::getProperty(functionHandle, "Handle").get()).isBuiltIn();
}

std::string functionLabel(const kxArray* handle) {
  if (kxGetClassID(handle) != kxFUNCTION_CLASS) {
    return kxGetClassName(handle);
  }
  const OpFunction function = builtInFunction(handle);
  if (function.element != nullptr) {
    return std::string(function.element->name);
  }
  if (function.aggregate != nullptr) {
    return fmt::format("{}{}", function.aggregate->name,
                       function.missing == MissingRule::Propagate ? " (missing propagate)" : "");
  }
  const std::string name = host::callableName(handle);
  if (name == kRandomRowsFunction) {
    return "rand";
  }
  return name.empty() ? "a function" : name;
}

}  // namespace kv::runtime
