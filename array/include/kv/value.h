#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kv {

/// A value in memory: a column of numbers, logicals, texts or times; a scalar has one row. A
/// missing integer or logical, such as the minimum of no rows, is represented as NaN in Numbers.
class Value {
 public:
  using Numbers = std::vector<double>;  ///< double and single
  using Integers = std::vector<std::int64_t>;
  using Unsigneds = std::vector<std::uint64_t>;
  using Logicals = std::vector<bool>;
  using Texts = std::vector<std::optional<std::string>>;  ///< nullopt for a missing text
  using Moment = std::chrono::sys_time<std::chrono::microseconds>;
  using Moments = std::vector<std::optional<Moment>>;  ///< nullopt for a missing one
  using Durations = std::vector<std::optional<std::chrono::microseconds>>;
  using Data = std::variant<Numbers, Integers, Unsigneds, Logicals, Texts, Moments, Durations>;

  explicit Value(Data data) : data_(std::move(data)) {}

  std::size_t rows() const;
  bool isText() const { return std::holds_alternative<Texts>(data_); }
  bool isTime() const {
    return std::holds_alternative<Moments>(data_) || std::holds_alternative<Durations>(data_);
  }
  bool isLogical() const { return std::holds_alternative<Logicals>(data_); }

  /// Element `row` as a number; a logical gives 0 or 1, an integer beyond 2^53 the nearest double.
  /// Errors: Error "KALVEX:array:NotANumber" for a text or a time; std::out_of_range after the last
  /// row.
  double number(std::size_t row = 0) const;

  /// Element `row` of a text column; nullopt if it is missing.
  /// Errors: Error "KALVEX:array:NotAText" for anything else; std::out_of_range.
  std::optional<std::string> text(std::size_t row = 0) const;

  const Data& data() const { return data_; }

 private:
  Data data_;
};

/// A moment in UTC by ISO 8601: `2013-06-01T05:15:30.25`.
std::string isoText(Value::Moment moment);

/// A duration by ISO 8601: `PT1H30M`, `-P1DT0.25S`.
std::string isoText(std::chrono::microseconds duration);

}  // namespace kv
