#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kv::host {

/// Writes `pieces`, one after the other, as the file `path`, which appears whole or not at all.
///
/// 1. The bytes go to a new file beside the target, `<name>.<16 hex digits>.kvtmp`, are synced, and
///    take the target's place in one step; then the folder is synced.
/// 2. That file is locked (flock) while it is written, so one that isn't was left by a killed save;
///    the next save of the same target removes it.
/// 3. A symbolic link is followed, and needn't lead to a file yet. The permissions of an existing
///    file are kept; a new one gets 0666 without the process's umask.
///
/// Errors: "KALVEX:save:CannotWrite" with path and reason; nothing is left beside the target then,
///         which is as it was before. Only if the folder can't be synced, at the very end, is the
///         target already the new file, complete. A target that may not be written, or
///         isn't a regular file, is refused.
void writeFileAtomically(const std::string& path, std::span<const std::string_view> pieces);

/// The bytes of a regular file. `checkHead` sees the first `headBytes`, or all there are, and the
/// number of bytes of the file before memory is asked for the rest.
///
/// Errors: "KALVEX:load:CannotRead" with path and reason; what `checkHead` raises.
std::string readFile(const std::string& path, std::size_t headBytes,
                     void (*checkHead)(std::string_view head, std::uint64_t fileBytes));

}  // namespace kv::host
