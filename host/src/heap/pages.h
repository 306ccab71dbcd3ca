#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace kv::host {

/// Size and alignment of a huge page.
inline constexpr std::size_t kHugePageBytes = 2 * 1024 * 1024;

/// `kHugePageBytes` of zeros, aligned to their size, in one huge page if `isHuge`: faulting them
/// in as small pages costs more than all else that is done to an object in its life. Otherwise only
/// what is touched takes memory.
/// Errors: std::bad_alloc. Owner: the caller, who returns them with `deletePages`.
inline void* newPages(bool isHuge) {
  constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS;
  void* const mapped = mmap(nullptr, 2 * kHugePageBytes, PROT_READ | PROT_WRITE, kFlags, -1, 0);
  if (mapped == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto* const first = static_cast<std::byte*>(mapped);
  const std::size_t past = reinterpret_cast<std::uintptr_t>(first) % kHugePageBytes;
  const std::size_t before = past == 0 ? 0 : kHugePageBytes - past;
  if (before != 0) {
    munmap(first, before);
  }
  munmap(first + before + kHugePageBytes, kHugePageBytes - before);
  // A system without huge pages is slower.
  static_cast<void>(
      madvise(first + before, kHugePageBytes, isHuge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE));
  return first + before;
}

inline void deletePages(void* pages) noexcept { munmap(pages, kHugePageBytes); }

}  // namespace kv::host
