#include "driver/OpSpecValue.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>

#include "foundation/i18n.h"

namespace kv::runtime {

namespace {

/// No file system has longer names; many operations may share a stack.
constexpr std::size_t kLongestFileName = 255;

std::string fileNameIn(const kxArray* path) {
  std::u16string_view text = kxGetChars(path);
  text.remove_prefix(text.size() - std::min(text.size(), kLongestFileName + 1));
  return fl::i18n::to_string(text.substr(text.find_last_of(u'/') + 1));
}

}  // namespace

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

}  // namespace kv::runtime
