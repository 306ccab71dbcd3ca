#pragma once

#include <string>
#include <string_view>

namespace kv::test {

/// The file with corrected lengths and checksums in its header, so that the content behind a
/// changed header is checked. Lengths that reach beyond the file are cut.
std::string withFittingHeader(std::string_view file);

}  // namespace kv::test
