#pragma once

#include <string>
#include <string_view>

namespace kv::runtime {

/// A data format other than UTF-8 text, recognised by the first bytes of a file.
struct FileFormat {
  const char* name;    ///< as in "it is ..."
  const char* advice;  ///< what to do about it
};

/// The format of a file that begins with `bytes`; null if it isn't one of those known here.
///
/// `bytes`: of a file that isn't text, since text may also begin with `PAR1`.
const FileFormat* formatOf(std::string_view bytes);

}  // namespace kv::runtime
