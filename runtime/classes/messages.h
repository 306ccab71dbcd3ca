#pragma once

namespace kv::runtime {

/// Enters the runtime's message texts in the host's catalogue; once a process.
void enterMessages();

}  // namespace kv::runtime
