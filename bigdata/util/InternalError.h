#pragma once

#include <string_view>

namespace bigdata {

/// Reports a fault of the library or of the host code around it.
/// Errors: "KALVEX:bigdata:array:InternalError" with `text`, always.
[[noreturn]] void throwInternalError(std::string_view text);

}  // namespace bigdata
