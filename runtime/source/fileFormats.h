#pragma once

#include <string>
#include <string_view>

namespace kv::runtime {

/// A form of data that isn't text in UTF-8, known by the first bytes of a file.
struct FileFormat {
  const char* name;    ///< as in "it is ..."
  const char* advice;  ///< what to do about it
};

/// The form of a file that begins with `bytes`; null if it is none of those known here.
///
/// Requires: the file isn't text, which may well begin with `PAR1`.
const FileFormat* formatOf(std::string_view bytes);

}  // namespace kv::runtime
