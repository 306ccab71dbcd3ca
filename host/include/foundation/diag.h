#pragma once

#include "kv/host/export.h"

namespace foundation::core::diag {

/// Ends the process after a broken invariant: writes text, file and line to the error stream.
[[noreturn]] KV_HOST_API void terminate(const char* text, const char* file, int line) noexcept;

}  // namespace foundation::core::diag

/// The same under the name that assertions use.
[[noreturn]] KV_HOST_API void fl_diag_terminate(const char* text, const char* file,
                                                int line) noexcept;
