#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kv {

/// A value in memory: a column of numbers, logicals or texts; a scalar has one row. A missing
/// integer or logical, such as the minimum of no rows, is represented as NaN in Numbers.
class Value {
 public:
  using Numbers = std::vector<double>;  ///< double and single
  using Integers = std::vector<std::int64_t>;
  using Unsigneds = std::vector<std::uint64_t>;
  using Logicals = std::vector<bool>;
  using Texts = std::vector<std::optional<std::string>>;  ///< nullopt for a missing text
  using Data = std::variant<Numbers, Integers, Unsigneds, Logicals, Texts>;

  explicit Value(Data data) : data_(std::move(data)) {}

  std::size_t rows() const;
  bool isText() const { return std::holds_alternative<Texts>(data_); }
  bool isLogical() const { return std::holds_alternative<Logicals>(data_); }

  /// Element `row` as a number; a logical gives 0 or 1, an integer beyond 2^53 the nearest double.
  /// Errors: Error "KALVEX:array:NotANumber" for a text; std::out_of_range after the last row.
  double number(std::size_t row = 0) const;

  /// Element `row` of a text column; nullopt if it is missing.
  /// Errors: Error "KALVEX:array:NotAText" for anything else; std::out_of_range.
  std::optional<std::string> text(std::size_t row = 0) const;

  const Data& data() const { return data_; }

 private:
  Data data_;
};

}  // namespace kv
