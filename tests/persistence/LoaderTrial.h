#pragma once

#include <string>
#include <string_view>

#include "LoadingSession.h"

namespace kv::test {

/// Loads files that may hold anything, all into one session, and holds what comes of it to the
/// rules: a file is refused with an error of loading, or its value can be saved and loaded again;
/// nothing of the user runs; nothing is left behind.
class LoaderTrial {
 public:
  /// Result: which rule was broken, and how; empty when all hold.
  std::string load(std::string_view file);

 private:
  std::string use(std::string_view file);

  LoadingSession session_;
  const std::size_t objects_ = session_.liveObjects();
};

}  // namespace kv::test
