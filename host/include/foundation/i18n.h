#pragma once

#include <string>
#include <string_view>

#include "kv/host/export.h"

/// UTF-8 and UTF-16. What isn't valid becomes U+FFFD.
namespace fl::i18n {

KV_HOST_API std::u16string to_ustring(std::string_view utf8);
KV_HOST_API std::string to_string(std::u16string_view utf16);

}  // namespace fl::i18n
