#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kv::shell {

/// A place in a formula: its bytes [begin, end).
struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

/// A number, a logical or a text in a formula. A number in digits alone is an integer.
struct Constant {
  std::variant<double, bool, std::string, std::int64_t, std::uint64_t> value;
  bool isRounded = false;  ///< the double nearest to a whole number that no type holds
};

struct Column {
  std::string name;
};

/// A function or an operator, on the `inputs` results before it that nobody has taken yet.
struct Call {
  std::string function;  ///< an operator goes by its function's name: `plus` for `+`
  std::size_t inputs = 0;
};

struct Step {
  std::variant<Constant, Column, Call> what;
  Span place;  ///< of a call: the function's name or the operator
};

/// A formula in postfix order, `x + 1` as x, 1, plus: whoever works through it needs a loop and a
/// stack, however long or deep it is.
struct Formula {
  std::string text;      ///< as the user wrote it
  std::string label;     ///< what its result is called: the given name, or the text
  bool isNamed = false;  ///< the label was given
  std::vector<Step> steps;
};

}  // namespace kv::shell
