#pragma once

namespace kv::shell {

/// True for a character that a terminal acts on, doesn't show, or lets change the order of others:
/// controls, line separators, and Unicode's default ignorable ones, the bidirectional formatting
/// characters among them. A name that has one can pass for another.
bool isInvisible(char32_t character);

}  // namespace kv::shell
