#pragma once

#include <string_view>

#include "kx/array.h"

namespace kv::host {

/// "double", "cell", ...; "object" for object arrays, whatever the class of their objects.
std::string_view nameOf(kxClassID classId) noexcept;

}  // namespace kv::host
