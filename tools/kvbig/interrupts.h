#pragma once

namespace kv::shell {

/// From here on Ctrl-C asks the evaluation to stop, and a second one ends the process at once; a
/// reader that closes the pipe ends it without a word, as with any filter.
/// An interrupt that the parent process ignores stays ignored.
void installSignalHandlers();

/// Errors: Interrupted if Ctrl-C came already, when no evaluation was there to stop.
void throwIfInterrupted();

}  // namespace kv::shell
