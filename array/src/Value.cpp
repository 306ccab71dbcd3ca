#include "kv/value.h"

#include "kv/error.h"

namespace kv {

std::size_t Value::rows() const {
  return std::visit([](const auto& column) { return column.size(); }, data_);
}

double Value::number(std::size_t row) const {
  return std::visit(
      [&]<class T>(const T& column) -> double {
        if constexpr (std::is_same_v<T, Texts>) {
          throw Error("KALVEX:array:NotANumber", "The value is a text, not a number.", {"string"});
        } else {
          return static_cast<double>(column.at(row));
        }
      },
      data_);
}

std::optional<std::string> Value::text(std::size_t row) const {
  if (const auto* texts = std::get_if<Texts>(&data_)) {
    return texts->at(row);
  }
  throw Error("KALVEX:array:NotAText", "The value is a number, not a text.");
}

}  // namespace kv
