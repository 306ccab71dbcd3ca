#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kv::formula {

/// A position in a formula: its bytes [begin, end).
struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

/// A number, a logical or a text in a formula. A number written only with digits is an integer.
struct Constant {
  std::variant<double, bool, std::string, std::int64_t, std::uint64_t> value;
  bool isRounded = false;  ///< the double nearest to a whole number that fits no type
};

struct Column {
  std::string name;
};

/// A function or an operator. It takes the last `inputs` results that haven't been used yet.
struct Call {
  std::string function;  ///< for an operator, the name of its function: `plus` for `+`
  std::size_t inputs = 0;
};

struct Step {
  std::variant<Constant, Column, Call> what;
  Span place;  ///< for a call: the function's name or the operator
};

/// A formula in postfix order: `x + 1` is x, 1, plus. It can be processed with a loop and a stack,
/// however long or deep it is.
struct Formula {
  std::string text;      ///< as the user wrote it
  std::string label;     ///< the name of its result: the given name, or the text
  bool isNamed = false;  ///< the label was given
  std::vector<Step> steps;
};

}  // namespace kv::formula
