#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// The table of error ids. An id without a row is foreign: users and their libraries may raise it.
namespace kv::errors {

/// The kind of built-in exception that a front end derives the error of an id from.
enum class BaseType { Runtime, Value, Type, Key, Index, Memory, System };

/// What is known of an id.
struct ErrorRow {
  std::string_view id;
  std::string_view arguments;  ///< their names in order, separated by ", "; empty if there are none
  std::string_view text;       ///< with {0}, {1}, ... where arguments go; see fillIn()
  BaseType base = BaseType::Runtime;
  bool namesPlace = false;  ///< the message already names the place in the data: file and row

  constexpr std::size_t numArguments() const noexcept {
    return arguments.empty() ? 0 : 1 + static_cast<std::size_t>(std::ranges::count(arguments, ','));
  }
};

/// All rows, in the order of their ids. Exists before any code runs.
std::span<const ErrorRow> errorRows() noexcept;

/// The row of an id; null for a foreign one.
///
/// Cost: O(log rows).
const ErrorRow* findErrorRow(std::string_view id) noexcept;

/// `text` with the arguments in the places {0}, {1}, ...; {0:short} takes the argument as
/// shownText() cuts it. A place without an argument is left as it is.
std::string fillIn(std::string_view text, std::span<const std::string> arguments);

/// The message of an error: the text of its row, filled in; for a foreign id the id and the
/// arguments.
std::string formatMessage(std::string_view id, std::span<const std::string> arguments);

/// True unless `id` has a row with another number of arguments: what each raise asserts.
bool fitsRow(std::string_view id, std::size_t numArguments) noexcept;

}  // namespace kv::errors
