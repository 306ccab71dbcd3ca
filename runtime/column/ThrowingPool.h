#pragma once

#include <arrow/type_fwd.h>

namespace kv::runtime {

/// Arrow's default memory pool, which throws std::bad_alloc when memory runs out instead of
/// returning a status: Arrow's CSV parser ends the process for that status, but passes on an
/// exception.
///
/// Lives: as long as the process. Threads: any.
arrow::MemoryPool* throwingPool();

}  // namespace kv::runtime
