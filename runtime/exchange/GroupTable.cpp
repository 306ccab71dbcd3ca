// Numbers of groups come from the keys, and each function keeps its states in an array by that
// number. So a chunk is folded column by column, and two tables are merged by looking up the keys
// of one in the other.

#include "exchange/GroupTable.h"

#include <arrow/buffer.h>

#include <algorithm>
#include <cassert>
#include <iterator>
#include <utility>

#include "column/arrays.h"
#include "column/bytes.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

std::vector<ElementType> typesOf(const std::vector<Column>& columns) {
  std::vector<ElementType> types;
  std::ranges::transform(columns, std::back_inserter(types), &Column::type);
  return types;
}

bool isUntyped(const std::vector<Column>& columns) {
  return std::ranges::any_of(
      columns, [](const Column& column) { return column.type() == ElementType::Unknown; });
}

Chunk rowsAt(const Chunk& chunk, const std::vector<std::uint64_t>& places) {
  const Column taken(ElementType::UInt64, std::ssize(places),
                     arrow::Buffer::Wrap(places.data(), places.size()));
  Chunk rows{
      .ordinals = RowOrdinals(0, taken.rows()), .names = chunk.names, .trailing = chunk.trailing};
  for (const Column& column : chunk.columns) {
    rows.columns.push_back(takeRows(column, taken));
  }
  return rows;
}

/// Where each number is among `numbers`, which are all up to some.
std::vector<std::uint64_t> placesByNumber(std::span<const std::uint32_t> numbers) {
  std::vector<std::uint64_t> places(numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    places.at(numbers[i]) = i;
  }
  return places;
}

}  // namespace

GroupTable::GroupTable(std::span<const GroupedValue> values) {
  for (const GroupedValue& value : values) {
    values_.push_back({value});
  }
}

void GroupTable::openValue(Value& value, ElementType type, Dimensions trailing) {
  groupFunctionType(*value.what.function, type);  // refuses undefined combinations
  value.type = type;
  value.trailing = std::move(trailing);
  for (std::size_t i = 0; i < columnsIn(value.trailing); ++i) {
    value.columns.push_back(value.what.function->fold(value.what.missing, type));
  }
}

bool GroupTable::open(const Chunk& keys, std::span<const Chunk> arrays) {
  const bool isOfUnknown = std::ranges::any_of(
      arrays, [](const Chunk& array) { return array.type() == ElementType::Unknown; });
  if (keys.columns.empty() || isUntyped(keys.columns) || isOfUnknown) {
    return false;
  }
  if (!keys_) {
    keys_.emplace(typesOf(keys.columns));
    keyShape_ = withoutRows(keys);
    for (Value& value : values_) {
      const bool takesArray = !value.what.function->countsRows;
      if (takesArray && value.what.input >= arrays.size()) {
        errors::raiseStep("KALVEX:executor:BadBytes", {"a step by key"});
      }
      const Chunk* array = takesArray ? &arrays[value.what.input] : nullptr;
      openValue(value, takesArray ? array->type() : ElementType::Int64,
                takesArray ? array->trailing : Dimensions{});
    }
  }
  assert(typesOf(keys.columns) == keys_->types());
  return true;
}

void GroupTable::openLike(const GroupTable& other) {
  keys_.emplace(other.keys_->types());
  keyShape_ = other.keyShape_;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    openValue(values_[i], other.values_[i].type, other.values_[i].trailing);
  }
}

GroupTable GroupTable::emptied() const {
  std::vector<GroupedValue> values;
  std::ranges::transform(values_, std::back_inserter(values), &Value::what);
  GroupTable table(values);
  if (keys_) {
    table.openLike(*this);
  }
  return table;
}

void GroupTable::add(const Chunk& keys, std::span<const Chunk> arrays) {
  assert(keys_.has_value());
  assert(std::ranges::all_of(arrays,
                             [&keys](const Chunk& array) { return array.rows() == keys.rows(); }));
  fold(keys_->numbersOf(keys.columns), keys, arrays);
}

std::vector<std::uint64_t> GroupTable::addKnown(const Chunk& keys, std::span<const Chunk> arrays) {
  std::vector<std::uint64_t> unknown;
  std::vector<std::uint64_t> known;
  std::vector<std::uint32_t> groups;
  const std::vector<std::uint32_t> found = keys_->find(keys.columns);
  for (std::size_t row = 0; row < found.size(); ++row) {
    (found[row] == GroupKeys::kUnknown ? unknown : known).push_back(row);
    if (found[row] != GroupKeys::kUnknown) {
      groups.push_back(found[row]);
    }
  }
  if (unknown.empty()) {
    fold(groups, keys, arrays);
  } else if (!known.empty()) {
    std::vector<Chunk> ofKnown;
    for (const Chunk& array : arrays) {
      ofKnown.push_back(rowsAt(array, known));
    }
    fold(groups, rowsAt(keys, known), ofKnown);
  }
  return unknown;
}

void GroupTable::fold(std::span<const std::uint32_t> groups, const Chunk& keys,
                      std::span<const Chunk> arrays) {
  for (Value& value : values_) {
    const std::vector<Column>& columns =
        value.what.function->countsRows ? keys.columns : arrays[value.what.input].columns;
    for (std::size_t i = 0; i < value.columns.size(); ++i) {
      value.columns[i]->resize(keys_->size());
      value.columns[i]->add(groups, columns[i]);
    }
  }
}

/// What Arrow's table takes for a group besides its key; states grow by doubling.
std::int64_t GroupTable::byteSize() const {
  constexpr std::int64_t kTableBytes = 28;
  constexpr std::int64_t kTextBytes = 32;
  std::int64_t ofGroup = kTableBytes;
  for (const ElementType type : keys_ ? keys_->types() : std::vector<ElementType>{}) {
    ofGroup +=
        type == ElementType::String ? kTextBytes : static_cast<std::int64_t>(elementSize(type));
  }
  for (const Value& value : values_) {
    for (const auto& column : value.columns) {
      ofGroup += 2 * static_cast<std::int64_t>(column->numStates() * sizeof(std::uint64_t));
    }
  }
  return groups() * ofGroup;
}

void GroupTable::merge(const GroupTable& later) {
  if (!later.keys_) {
    return;
  }
  if (!keys_) {
    openLike(later);
  }
  const std::span<const std::uint32_t> groups = keys_->numbersOf(later.keys_->keys());
  for (std::size_t i = 0; i < values_.size(); ++i) {
    for (std::size_t column = 0; column < values_[i].columns.size(); ++column) {
      GroupFold& fold = *values_[i].columns[column];
      fold.resize(keys_->size());
      fold.merge(*later.values_[i].columns[column], groups);
    }
  }
}

GroupBytes GroupTable::toBytes() const {
  GroupBytes bytes;
  ByteWriter layout;
  layout.flag(keys_.has_value());
  if (keys_) {
    layout.flag(keyShape_.names != nullptr);
    layout.texts(keyShape_.names ? *keyShape_.names : std::vector<std::string>{});
    writeDimensions(keyShape_.trailing, layout);
    bytes.states.columns = keys_->keys();
    layout.number<std::uint64_t>(bytes.states.columns.size());
    for (const Column& key : bytes.states.columns) {
      layout.flag(key.isNullable());
    }
    for (const Value& value : values_) {
      layout.number(static_cast<std::uint8_t>(value.type));
      writeDimensions(value.trailing, layout);
      for (const auto& column : value.columns) {
        std::ranges::move(column->states(), std::back_inserter(bytes.states.columns));
      }
    }
  }
  bytes.layout = layout.take();
  bytes.states.ordinals = RowOrdinals(0, groups());
  bytes.states.names =
      std::make_shared<const std::vector<std::string>>(bytes.states.columns.size());
  return bytes;
}

GroupTable GroupTable::fromBytes(std::span<const GroupedValue> values, GroupBytes bytes) {
  GroupTable table(values);
  ByteReader layout(bytes.layout, "the groups of a unit");
  if (!layout.flag()) {
    layout.finish();
    return table;
  }
  const bool isTable = layout.flag();
  std::vector<std::string> names = layout.texts();
  if (isTable) {
    table.keyShape_.names = std::make_shared<const std::vector<std::string>>(std::move(names));
  }
  table.keyShape_.trailing = readDimensions(layout);
  std::span<const Column> columns(bytes.states.columns);
  const auto numKeys = layout.number<std::uint64_t>();
  if (numKeys == 0 || numKeys > columns.size() || isUntyped(bytes.states.columns)) {
    layout.refuse();
  }
  std::vector<Column> keys;
  for (const Column& key : columns.first(numKeys)) {
    keys.push_back(layout.flag() ? key.asNullable() : key);
  }
  columns = columns.subspan(numKeys);
  table.keys_.emplace(typesOf(keys));
  table.keyShape_.columns = withoutRows({.columns = keys}).columns;
  const std::vector<std::uint64_t> places = placesByNumber(table.keys_->numbersOf(keys));
  if (table.keys_->size() != bytes.states.rows()) {
    layout.refuse();
  }
  const Column byNumber(ElementType::UInt64, std::ssize(places),
                        arrow::Buffer::Wrap(places.data(), places.size()));
  for (Value& value : table.values_) {
    const ElementType type = readElementType(layout);
    table.openValue(value, type, readDimensions(layout));
    for (const auto& fold : value.columns) {
      if (fold->numStates() > columns.size()) {
        layout.refuse();
      }
      std::vector<Column> states;
      for (const Column& state : columns.first(fold->numStates())) {
        states.push_back(takeRows(state, byNumber));
      }
      fold->setStates(states);
      columns = columns.subspan(fold->numStates());
    }
  }
  layout.finish();
  return table;
}

std::vector<Chunk> GroupTable::answers() const {
  std::vector<Chunk> arrays;
  if (!keys_) {
    arrays.resize(values_.size() + 1, emptyArray({}));
    return arrays;
  }
  const RowOrdinals rows(0, groups());
  arrays.push_back({0, rows, keyShape_.names, keys_->keys(), keyShape_.trailing});
  for (const Value& value : values_) {
    arrays.push_back({.ordinals = rows, .trailing = value.trailing});
    for (const auto& column : value.columns) {
      arrays.back().columns.push_back(column->answers());
    }
  }
  return inOrderOfKeys(std::move(arrays));
}

std::size_t keyColumnsOf(const GroupBytes& bytes) {
  ByteReader layout(bytes.layout, "the groups of a unit");
  if (!layout.flag()) {
    return 0;
  }
  layout.flag();
  layout.texts();
  readDimensions(layout);
  return layout.number<std::uint64_t>();
}

Chunk withoutRows(const Chunk& chunk) {
  Chunk shape{.names = chunk.names, .trailing = chunk.trailing};
  for (const Column& column : chunk.columns) {
    const Column none = emptyColumn(column.type());
    shape.columns.push_back(column.isNullable() ? none.asNullable() : none);
  }
  return shape;
}

std::vector<Chunk> inOrderOfKeys(std::vector<Chunk> arrays) {
  const Column order = ascendingOrder(arrays.front().columns);
  for (Chunk& array : arrays) {
    for (Column& column : array.columns) {
      column = takeRows(column, order);
    }
  }
  return arrays;
}

}  // namespace kv::runtime
