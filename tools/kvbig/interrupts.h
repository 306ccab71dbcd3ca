#pragma once

namespace kv::shell {

/// From now on, Ctrl-C asks the evaluation to stop, and a second Ctrl-C ends the process at once. A
/// reader that closes the pipe ends the process silently, as with any filter.
/// An interrupt that the parent process ignores remains ignored.
void installSignalHandlers();

/// Errors: Interrupted if Ctrl-C was pressed before an evaluation began.
void throwIfInterrupted();

}  // namespace kv::shell
