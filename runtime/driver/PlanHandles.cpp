#include "driver/PlanHandles.h"

#include <fmt/core.h>

namespace kv::runtime {

namespace {

/// Longer texts aren't shown: many steps may share one.
constexpr std::size_t kShortText = 40;

bool isShortText(const kxArray* value) {
  const auto text = Torvane::String::isString(value) && kxIsScalar(value)
                        ? Torvane::String::getString(value, 0)
                        : std::nullopt;
  return text && text->size() <= kShortText;
}

}  // namespace

std::string shownValue(const kxArray* value) {
  const bool isNumber = kxIsNumeric(value) || kxGetClassID(value) == kxLOGICAL_CLASS;
  if (kxIsScalar(value) && isNumber) {
    return fmt::format("{}", kxGetScalar(value));
  }
  if (isShortText(value)) {
    return fmt::format("\"{}\"", host::toText(value));
  }
  return fmt::format("a {}x{} {}", kxGetM(value), kxGetN(value), kxGetClassName(value));
}

}  // namespace kv::runtime
