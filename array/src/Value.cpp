#include "kv/value.h"

#include "kv/error.h"
#include "kv/runtime/times.h"

namespace kv {

std::size_t Value::rows() const {
  return std::visit([](const auto& column) { return column.size(); }, data_);
}

double Value::number(std::size_t row) const {
  return std::visit(
      [&]<class T>(const T& column) -> double {
        if constexpr (std::is_same_v<T, Texts>) {
          raiseError("KALVEX:array:NotANumber", {"string"});
        } else if constexpr (std::is_same_v<T, Moments>) {
          raiseError("KALVEX:array:NotANumber", {"datetime"});
        } else if constexpr (std::is_same_v<T, Durations>) {
          raiseError("KALVEX:array:NotANumber", {"duration"});
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
  raiseError("KALVEX:array:NotAText", {isTime() ? "a time" : "a number"});
}

std::string isoText(Value::Moment moment) {
  return runtime::formatMoment(moment.time_since_epoch().count());
}

std::string isoText(std::chrono::microseconds duration) {
  return runtime::formatDuration(duration.count());
}

}  // namespace kv
