#pragma once

#include <arrow/type_fwd.h>

namespace kv::runtime {

/// Arrow's default memory pool, which throws std::bad_alloc where memory is short instead of saying
/// so: Arrow's CSV parser ends the process when it is told, but lets an exception pass.
///
/// Lives: as long as the process. Threads: any.
arrow::MemoryPool* throwingPool();

}  // namespace kv::runtime
