#pragma once

#include <string>
#include <string_view>

#include "LoadingSession.h"

namespace kv::test {

/// Loads files that may contain anything, all into one session, and checks the rules: a file is
/// refused with an error of loading, or its value can be saved and loaded again; no user code runs;
/// nothing is left.
class LoaderTrial {
 public:
  /// Result: the broken rule, in words; empty if all hold.
  std::string load(std::string_view file);

 private:
  std::string use(std::string_view file);

  LoadingSession session_;
  const std::size_t objects_ = session_.liveObjects();
};

}  // namespace kv::test
