#pragma once

#include <algorithm>
#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/runtime/Aggregates.h"

/// What aggregates within rows share: each row has a result, and columns are taken in order.
namespace kv::runtime {

/// Missing elements of columns without nulls.
template <class T>
bool isMissingElement(T value) {
  if constexpr (std::floating_point<T>) {
    return value != value;
  }
  return false;
}

/// Calls `use(row, element)` for each element.
template <class T, class Use>
void forEachElement(std::span<const Column> columns, const Use& use) {
  for (const Column& column : columns) {
    assert(column.type() == columns.front().type() && column.rows() == columns.front().rows());
    assert(!column.hasNulls());
    std::size_t row = 0;
    for (const T element : column.values<T>()) {
      use(row++, element);
    }
  }
}

/// A state for each row, after `add(state, element)` for each element.
template <class T, class State, class Add>
std::vector<State> foldRows(std::span<const Column> columns, const State& first, const Add& add) {
  std::vector<State> states(static_cast<std::size_t>(columns.front().rows()), first);
  forEachElement<T>(columns, [&](std::size_t row, T element) { add(states[row], element); });
  return states;
}

/// The same without missing elements, if the rule skips these.
template <class T, class State, class Add>
std::vector<State> foldRows(std::span<const Column> columns, MissingRule rule, const State& first,
                            const Add& add) {
  return foldRows<T>(columns, first, [&](State& state, T element) {
    if (rule == MissingRule::Propagate || !isMissingElement(element)) {
      add(state, element);
    }
  });
}

template <class T>
std::vector<std::int64_t> countsOfRows(std::span<const Column> columns, MissingRule rule) {
  return foldRows<T>(columns, rule, std::int64_t{0}, [](std::int64_t& count, T) { ++count; });
}

template <class T>
std::vector<double> sumsOfRows(std::span<const Column> columns, MissingRule rule) {
  return foldRows<T>(columns, rule, 0.0,
                     [](double& sum, T element) { sum += static_cast<double>(element); });
}

/// NaN for no values.
template <class T>
std::vector<double> meansOfRows(std::span<const Column> columns, MissingRule rule) {
  const std::vector<std::int64_t> counts = countsOfRows<T>(columns, rule);
  std::vector<double> means = sumsOfRows<T>(columns, rule);
  for (std::size_t row = 0; row < means.size(); ++row) {
    means[row] /= static_cast<double>(counts[row]);
  }
  return means;
}

template <class T>
Column columnOfElements(ElementType type, const std::vector<T>& elements) {
  assert(sizeof(T) == elementSize(type));
  const std::size_t bytes = elements.size() * sizeof(T);
  auto buffer = allocateBuffer(static_cast<std::int64_t>(bytes));
  if (bytes > 0) {
    std::memcpy(buffer->mutable_data(), elements.data(), bytes);
  }
  return {type, std::ssize(elements), std::move(buffer)};
}

/// Results that were computed in double: single for single.
inline Column floatingColumn(ElementType input, const std::vector<double>& numbers) {
  return input == ElementType::Single
             ? columnOfElements(input, std::vector<float>(numbers.begin(), numbers.end()))
             : columnOfElements(ElementType::Double, numbers);
}

}  // namespace kv::runtime
