#pragma once

namespace kv::formula {

/// True for a character that a terminal interprets, doesn't show, or lets change the order of
/// others: controls, line separators, and Unicode's default ignorable characters, which include the
/// bidirectional formatting characters. A name with one can be mistaken for another name.
bool isInvisible(char32_t character);

}  // namespace kv::formula
