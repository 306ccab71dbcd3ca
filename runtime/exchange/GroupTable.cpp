#include "exchange/GroupTable.h"

#include <arrow/buffer.h>

#include <algorithm>
#include <cassert>
#include <utility>

#include "column/arrays.h"
#include "column/bytes.h"

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

/// What the keys are, without rows.
Chunk shapeOf(const Chunk& keys) {
  Chunk shape{.names = keys.names, .trailing = keys.trailing};
  for (const Column& column : keys.columns) {
    const Column none = emptyColumn(column.type());
    shape.columns.push_back(column.isNullable() ? none.asNullable() : none);
  }
  return shape;
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

void GroupTable::open(const std::vector<ElementType>& keyTypes) {
  if (!keyTypes.empty()) {
    keys_.emplace(keyTypes);
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

void GroupTable::add(const Chunk& keys, std::span<const Chunk> arrays) {
  const bool isOfUnknown = std::ranges::any_of(
      arrays, [](const Chunk& array) { return array.type() == ElementType::Unknown; });
  if (keys.columns.empty() || isUntyped(keys.columns) || isOfUnknown) {
    return;
  }
  if (!keys_) {
    open(typesOf(keys.columns));
    keyShape_ = shapeOf(keys);
    for (Value& value : values_) {
      const bool takesArray = !value.what.function->countsRows;
      const Chunk* array = takesArray ? &arrays[value.what.input] : nullptr;
      openValue(value, takesArray ? array->type() : ElementType::Int64,
                takesArray ? array->trailing : Dimensions{});
    }
  }
  const std::span<const std::uint32_t> groups = keys_->numbersOf(keys.columns);
  for (Value& value : values_) {
    const std::vector<Column>& columns =
        value.what.function->countsRows ? keys.columns : arrays[value.what.input].columns;
    for (std::size_t i = 0; i < value.columns.size(); ++i) {
      value.columns[i]->resize(keys_->size());
      value.columns[i]->add(groups, columns[i]);
    }
  }
}

void GroupTable::merge(const GroupTable& later) {
  if (!later.keys_) {
    return;
  }
  if (!keys_) {
    open(later.keys_->types());
    keyShape_ = later.keyShape_;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      openValue(values_[i], later.values_[i].type, later.values_[i].trailing);
    }
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
  const std::vector<Column> keys(columns.begin(), columns.begin() + static_cast<long>(numKeys));
  columns = columns.subspan(numKeys);
  table.open(typesOf(keys));
  table.keyShape_.columns = shapeOf({.columns = keys}).columns;
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
  const std::vector<Column> keys = keys_->keys();
  const Column order = ascendingOrder(keys);
  const auto arrange = [&](const std::vector<Column>& columns, const Chunk& like) {
    Chunk array{
        .ordinals = RowOrdinals(0, groups()), .names = like.names, .trailing = like.trailing};
    for (const Column& column : columns) {
      array.columns.push_back(takeRows(column, order));
    }
    arrays.push_back(std::move(array));
  };
  arrange(keys, keyShape_);
  for (const Value& value : values_) {
    std::vector<Column> columns;
    for (const auto& column : value.columns) {
      columns.push_back(column->answers());
    }
    arrange(columns, {.trailing = value.trailing});
  }
  return arrays;
}

}  // namespace kv::runtime
