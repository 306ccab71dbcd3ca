#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kv::shell {

/// Writes all of `text` to standard output.
/// Errors: std::runtime_error with the system's reason.
void writeOut(std::string_view text);

/// A text from a file, safe for a terminal: invisible characters (see isInvisible) and bytes that
/// aren't UTF-8 are shown as \xNN, \uNNNN or \UNNNNNNNN.
std::string printable(std::string_view text);

/// The same for a text of several lines; line ends are kept.
std::string printableLines(std::string_view text);

/// A text as a JSON string, in quotes; characters that a terminal doesn't show are escaped.
std::string jsonText(std::string_view text);

/// A JSON array of texts.
std::string jsonTexts(const std::vector<std::string>& texts);

/// Number of characters in a UTF-8 text, which is its width on a terminal for most scripts.
std::size_t displayWidth(std::string_view text);

/// `text` padded with blanks to `width`.
std::string padded(std::string_view text, std::size_t width);

/// The longest column name, in bytes, that advice repeats.
inline constexpr std::size_t kLongestAdvised = 80;

/// The option that sets a column's type, as it is typed in a shell: `--type 'x=int64'`.
std::string typeOption(std::string_view column, std::string_view type);

/// The same for any name; a name that is too long to repeat is described.
std::string typeAdvice(std::string_view column, std::string_view type);

}  // namespace kv::shell
