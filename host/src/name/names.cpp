#include "name/names.h"

#include "kv/host/errors.h"

namespace kv::host {

kcos::COSInternedBase requireName(std::string_view text) {
  if (text.empty()) {
    raise("KALVEX:validateattributes:invalidType", {"Input", "a name", ""});
  }
  return interned(text);
}

}  // namespace kv::host
