#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>

namespace kv::host {

/// Size, and alignment, of what the processor maps in one piece where the system lets it.
inline constexpr std::size_t kHugePageBytes = 2 * 1024 * 1024;

/// Memory of one huge page. To fault it in as small pages costs more than all the rest that is done
/// to an object in its life.
/// Errors: std::bad_alloc. Freed with `operator delete` of the same alignment.
inline void* newHugePage() {
  void* memory = ::operator new(kHugePageBytes, std::align_val_t(kHugePageBytes));
  static_cast<void>(madvise(memory, kHugePageBytes, MADV_HUGEPAGE));  // a system without is slower
  return memory;
}

}  // namespace kv::host
