// Aggregates by key are recorded one by one, with the same keys; the plan runs them as one step.
// So the rows of their results are known to go together.

#include "kv/groups.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "handles.h"
#include "kv/errors/shownText.h"
#include "kv/runtime/GroupFunctions.h"
#include "kv/runtime/functionNames.h"

namespace kv {

namespace {

using runtime::ElementType;

/// What the rows of a grouped table are: known by the keys, if it is known how these were made.
std::shared_ptr<const RowSpace> rowsOf(std::span<const Array> keys) {
  std::size_t made = keys.size();
  for (const Array& key : keys) {
    const RowTraits& traits = key.handle().traits;
    const bool isKnown = traits.made != 0 && traits.rows != nullptr;
    const std::size_t part = keyOf(std::to_string(traits.made), isKnown ? traits.rows->key() : 0);
    made = isKnown ? keyOf(std::to_string(made), part) : uniqueKey();
  }
  return std::make_shared<const RowSpace>(fmt::format("groups {}", made), "the groups",
                                          std::nullopt);
}

/// The keys as the host takes them: a column, or a table of several.
host::Value keysOf(const Table& table, std::span<const std::string> names,
                   std::span<const Array> keys) {
  if (keys.size() == 1) {
    return matrix::sharedCopy(keys.front().handle().value.get());
  }
  CallInputs inputs;
  inputs.give(host::makeChars(":"));
  inputs.give(host::makeStringColumn({names.begin(), names.end()}));
  inputs.give(host::makeLogical(false));
  inputs.lend(table.handle().value);
  return host::call("subsrefTabularVar", inputs.list());
}

const runtime::GroupFunction& functionOf(const GroupColumn& column) {
  const runtime::GroupFunction* function = runtime::findGroupFunction(column.function);
  if (function == nullptr) {
    raiseError("KALVEX:array:UnknownFunction", {column.function, "function of groups"});
  }
  return *function;
}

}  // namespace

GroupBy::GroupBy(Table table, std::vector<std::string> keys, Where where)
    : table_(std::move(table)), keys_(std::move(keys)) {
  if (keys_.empty()) {
    raiseError("KALVEX:array:NoArray", {});
  }
  for (const std::string& key : keys_) {
    if (std::ranges::count(keys_, key) > 1) {
      raiseError("KALVEX:array:SameName", {key});
    }
    keyArrays_.push_back(table_.column(key, where));
  }
  if (keys_.size() > 1 && table_.handle().value == nullptr) {
    raiseError("KALVEX:array:NotSupported",
               {"Grouping by several columns of a table that was made of arrays",
                "Group the table that was read."});
  }
}

Table GroupBy::agg(std::span<const GroupColumn> columns, Where where) const {
  const auto session = sessionOf(keyArrays_);
  return publicCall(*session, where, [&] {
    const host::Value keys = keysOf(table_, keys_, keyArrays_);
    const auto rows = rowsOf(keyArrays_);
    const auto arrayOf = [&](host::Value value, ElementType type) {
      return makeArray(session, std::move(value), type,
                       {.isColumn = true, .rows = rows, .made = uniqueKey()});
    };
    std::vector<NamedArray> made;
    host::Value keyRows;
    for (const GroupColumn& column : columns) {
      const runtime::GroupFunction& function = functionOf(column);
      const bool isSkipped = column.missing == Missing::Skip;
      const auto rule = isSkipped ? runtime::MissingRule::Skip : runtime::MissingRule::Propagate;
      CallInputs inputs;
      inputs.give(
          host::makeFunctionHandle(runtime::aggregateFunctionName(column.function, {rule})));
      inputs.lend(keys);
      ElementType type = ElementType::Int64;
      if (!function.countsRows) {
        const Array input = table_.column(column.column, where);
        type = runtime::groupFunctionType(function, input.handle().type);
        inputs.give(matrix::sharedCopy(input.handle().value.get()));
      }
      std::vector<host::Value> results = host::callMany("reducebykeyfun", 2, inputs.list());
      keyRows = std::move(results[0]);
      made.push_back({column.name, arrayOf(std::move(results[1]), type)});
    }
    if (columns.empty()) {
      CallInputs inputs;
      inputs.give(host::makeFunctionHandle(runtime::aggregateFunctionName("size", {})));
      inputs.lend(keys);
      keyRows = host::call("reducebykeyfun", inputs.list());
    }
    std::vector<NamedArray> all;
    for (std::size_t i = 0; i < keys_.size(); ++i) {
      host::Value key = matrix::sharedCopy(keyRows.get());
      if (keys_.size() > 1) {
        CallInputs inputs;
        inputs.give(host::makeChars(":"));
        inputs.give(host::makeChars(keys_[i]));
        inputs.give(host::makeLogical(true));
        inputs.lend(keyRows);
        key = host::call("subsrefTabularVar", inputs.list());
      }
      all.push_back({keys_[i], arrayOf(std::move(key), keyArrays_[i].handle().type)});
    }
    std::ranges::move(made, std::back_inserter(all));
    return tableOf(all, where);
  });
}

Table GroupBy::sum(std::string_view column, Where where) const { return of("sum", column, where); }
Table GroupBy::mean(std::string_view column, Where where) const {
  return of("mean", column, where);
}
Table GroupBy::min(std::string_view column, Where where) const { return of("min", column, where); }
Table GroupBy::max(std::string_view column, Where where) const { return of("max", column, where); }
Table GroupBy::count(std::string_view column, Where where) const {
  return of("count", column, where);
}
Table GroupBy::std(std::string_view column, Where where) const { return of("std", column, where); }
Table GroupBy::var(std::string_view column, Where where) const { return of("var", column, where); }

Table GroupBy::size(Where where) const { return agg({{"size", "size"}}, where); }

Table GroupBy::of(std::string_view function, std::string_view column, Where where) const {
  return agg({{std::string(column), std::string(function), std::string(column)}}, where);
}

std::vector<FunctionFacts> groupFunctions() {
  std::vector<FunctionFacts> facts;
  for (const runtime::GroupFunction& row : runtime::groupFunctions()) {
    facts.push_back(
        {std::string(row.name), "", row.countsRows ? 0U : 1U, std::string(row.summary)});
  }
  return facts;
}

}  // namespace kv
