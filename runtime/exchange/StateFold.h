#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <memory_resource>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "column/Validity.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "exchange/GroupFold.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

/// Calls `visit(row, isMissing)` for the rows of a column of any type but text.
template <class T, class Visit>
void forRows(const Column& rows, Visit&& visit) {
  const auto values = rows.values<T>();
  if constexpr (std::is_floating_point_v<T>) {
    for (std::size_t row = 0; row < values.size(); ++row) {
      visit(row, values[row] != values[row]);
    }
  } else if (isTime(rows.type())) {
    for (std::size_t row = 0; row < values.size(); ++row) {
      visit(row, static_cast<std::int64_t>(values[row]) == kNaT);
    }
  } else {
    const Validity validity(rows);
    if (!validity.hasNulls()) {
      for (std::size_t row = 0; row < values.size(); ++row) {
        visit(row, false);
      }
      return;
    }
    for (std::size_t row = 0; row < values.size(); ++row) {
      visit(row, validity.isNull(static_cast<std::int64_t>(row)));
    }
  }
}

/// A column of results: `valueOf(group)`, unless `isMissing(group)`.
template <class T, class ValueOf, class IsMissing>
Column answerColumn(ElementType type, std::size_t groups, ValueOf&& valueOf,
                    IsMissing&& isMissing) {
  const auto rows = static_cast<std::int64_t>(groups);
  auto buffer = allocateBuffer(rows * static_cast<std::int64_t>(sizeof(T)));
  T* values = buffer->mutable_data_as<T>();
  bool hasMissing = false;
  for (std::size_t group = 0; group < groups; ++group) {
    if (!isMissing(group)) {
      values[group] = valueOf(group);
    } else if constexpr (std::is_floating_point_v<T>) {
      values[group] = std::numeric_limits<T>::quiet_NaN();
    } else {
      values[group] = isTime(type) ? static_cast<T>(kNaT) : T{};
      hasMissing = true;
    }
  }
  if (!isWhole(type) || !hasMissing) {
    return {type, rows, std::move(buffer)};
  }
  return nullableColumn(type, rows, std::move(buffer), nullBits(rows, [&](std::int64_t row) {
                          return isMissing(static_cast<std::size_t>(row));
                        }));
}

/// A result that was computed in double, in the type of the answer. All zeros become +0, all NaNs
/// the quiet NaN.
template <class ValueOf, class IsMissing>
Column floatingAnswers(ElementType type, std::size_t groups, ValueOf&& valueOf,
                       IsMissing&& isMissing) {
  const auto canonical = [&](std::size_t group) {
    const double value = valueOf(group);
    return value != value ? std::numeric_limits<double>::quiet_NaN() : value + 0.0;
  };
  if (type == ElementType::Single) {
    return answerColumn<float>(
        type, groups, [&](std::size_t group) { return static_cast<float>(canonical(group)); },
        isMissing);
  }
  return answerColumn<double>(type, groups, canonical, isMissing);
}

/// States of one plain struct each, whose size is a multiple of 8 bytes, without gaps; and, where
/// missing values propagate, whether one was missing.
template <class State>
class StateFold : public GroupFold {
 public:
  explicit StateFold(bool propagates) : propagates_(propagates) {}

  void resize(std::int64_t groups) final {
    states_.resize(static_cast<std::size_t>(groups));
    if (propagates_) {
      isMissing_.resize(states_.size());
    }
  }

  void merge(const GroupFold& laterFold, std::span<const std::uint32_t> groups) final {
    const auto& later = static_cast<const StateFold&>(laterFold);
    for (std::size_t i = 0; i < groups.size(); ++i) {
      states_[groups[i]].merge(later.states_[i]);
    }
    for (std::size_t i = 0; i < groups.size() && propagates_; ++i) {
      isMissing_[groups[i]] |= later.isMissing_[i];
    }
  }

  std::size_t numStates() const final { return kWords + (propagates_ ? 1 : 0); }

  std::vector<Column> states() const final {
    std::vector<Column> columns;
    const auto rows = static_cast<std::int64_t>(states_.size());
    for (std::size_t word = 0; word < kWords; ++word) {
      auto buffer = allocateBuffer(rows * static_cast<std::int64_t>(sizeof(std::uint64_t)));
      auto* to = buffer->template mutable_data_as<std::uint64_t>();
      for (const State& state : states_) {
        std::memcpy(to++, reinterpret_cast<const char*>(&state) + word * sizeof(*to), sizeof(*to));
      }
      columns.emplace_back(ElementType::UInt64, rows, std::move(buffer));
    }
    if (propagates_) {
      auto buffer = allocateBuffer(rows);
      std::ranges::copy(isMissing_, buffer->mutable_data());
      columns.emplace_back(ElementType::Logical, rows, std::move(buffer));
    }
    return columns;
  }

  void setStates(std::span<const Column> columns) final {
    assert(states_.empty() && columns.size() == numStates());
    resize(columns.front().rows());
    for (std::size_t word = 0; word < kWords; ++word) {
      const auto from = columns[word].values<std::uint64_t>();
      for (std::size_t i = 0; i < states_.size(); ++i) {
        std::memcpy(reinterpret_cast<char*>(&states_[i]) + word * sizeof(from[i]), &from[i],
                    sizeof(from[i]));
      }
    }
    if (propagates_) {
      const auto flags = columns.back().values<std::uint8_t>();
      isMissing_.assign(flags.begin(), flags.end());
    }
  }

 protected:
  /// Adds the rows that aren't missing: `take(state, row)`.
  template <class T, class Take>
  void addRows(std::span<const std::uint32_t> groups, const Column& rows, Take&& take) {
    assert(std::ssize(groups) == rows.rows());
    State* const states = states_.data();
    const bool propagates = propagates_;
    std::uint8_t* const isMissing = isMissing_.data();
    forRows<T>(rows, [&](std::size_t row, bool isRowMissing) {
      if (!isRowMissing) {
        take(states[groups[row]], row);
      } else if (propagates) {
        isMissing[groups[row]] = 1;
      }
    });
  }

  std::size_t size() const { return states_.size(); }
  const State& at(std::size_t group) const { return states_[group]; }
  State& at(std::size_t group) { return states_[group]; }
  bool isPoisoned(std::size_t group) const { return propagates_ && isMissing_[group] != 0; }

 private:
  static_assert(std::is_trivially_copyable_v<State>);
  static constexpr std::size_t kWords = sizeof(State) / sizeof(std::uint64_t);
  static_assert(kWords * sizeof(std::uint64_t) == sizeof(State));

  bool propagates_;
  std::pmr::vector<State> states_{currentResource()};
  std::pmr::vector<std::uint8_t> isMissing_{currentResource()};
};

}  // namespace kv::runtime
