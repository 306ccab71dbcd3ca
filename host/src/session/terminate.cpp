#include <cstdio>
#include <cstdlib>

#include "foundation/diag.h"

namespace foundation::core::diag {

void terminate(const char* text, const char* file, int line) noexcept {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  std::fflush(stderr);
  std::abort();
}

}  // namespace foundation::core::diag

void fl_diag_terminate(const char* text, const char* file, int line) noexcept {
  foundation::core::diag::terminate(text, file, line);
}
