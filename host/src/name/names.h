#pragma once

#include <string_view>

#include "kcos/interned.h"

namespace kv::host {

/// The interned form of a text that isn't a literal.
inline kcos::COSInternedBase interned(std::string_view text) {
  return kcos::internal::makeInterned(kcos::NameRef::of(text));
}

/// The interned form of a name that something is defined under.
/// Errors: "KALVEX:validateattributes:invalidType" for an empty text.
kcos::COSInternedBase requireName(std::string_view text);

}  // namespace kv::host
