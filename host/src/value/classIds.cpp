#include "value/classIds.h"

#include <array>

namespace kv::host {

namespace {

// By number; 5 isn't in use.
constexpr std::array<ClassIdFacts, 19> kFacts = {{
    {"unknown", 0, false},
    {"cell", 0, false},
    {"struct", 0, false},
    {"logical", 1, false},
    {"char", 2, false},
    {"unknown", 0, false},
    {"double", 8, true},
    {"single", 4, true},
    {"int8", 1, true},
    {"uint8", 1, true},
    {"int16", 2, true},
    {"uint16", 2, true},
    {"int32", 4, true},
    {"uint32", 4, true},
    {"int64", 8, true},
    {"uint64", 8, true},
    {"function_handle", 0, false},
    {"string", 0, false},
    {"object", 0, false},
}};

}  // namespace

const ClassIdFacts& classIdFacts(kxClassID classId) noexcept {
  const auto index = static_cast<std::size_t>(classId);
  return kFacts[index < kFacts.size() ? index : 0];
}

}  // namespace kv::host
