#pragma once

#include <string>
#include <string_view>

namespace kv::test {

/// The file with lengths and checksums made to fit, so that what was changed behind the header is
/// looked at. Lengths that reach beyond the file are cut.
std::string withFittingHeader(std::string_view file);

}  // namespace kv::test
