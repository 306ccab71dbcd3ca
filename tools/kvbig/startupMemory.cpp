// Libraries that the command links allocate memory while they are loaded, before main, and end the
// process with a signal if they can't. So the available address space is checked before that:
// .preinit_array of an executable runs before the constructors of all libraries.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string_view>

#include "failures.h"

namespace kv::shell {

namespace {

// Libraries took up to 11 MB when this was measured, including the stack of a thread.
constexpr std::size_t kNeededBytes = std::size_t{32} << 20;

constexpr std::string_view kMessage =
    "kvbig: Out of memory: less than 32 MB of address space is left to start with.\n";

/// Ends the process if it has no address space to start with. Uses only system calls: not even the
/// standard library is ready yet.
void requireAddressSpace() {
  void* const tried = mmap(nullptr, kNeededBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (tried == MAP_FAILED) {
    [[maybe_unused]] const ssize_t written =
        ::write(STDERR_FILENO, kMessage.data(), kMessage.size());
    _exit(kFailed);
  }
  munmap(tried, kNeededBytes);
}

[[gnu::section(".preinit_array"),
  gnu::used]] void (*const kBeforeLibraries)() = requireAddressSpace;

}  // namespace

}  // namespace kv::shell
