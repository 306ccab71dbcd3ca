#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "persistence/LoaderTrial.h"
#include "persistence/RefittedFile.h"

/// Each input is a saved file whose header is repaired.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static kv::test::LoaderTrial trial;
  const std::string file = kv::test::withFittingHeader({reinterpret_cast<const char*>(data), size});
  const std::string broken = trial.load(file);
  if (!broken.empty()) {
    std::fprintf(stderr, "%s\n", broken.c_str());
    std::abort();
  }
  return 0;
}
