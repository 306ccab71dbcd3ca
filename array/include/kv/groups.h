#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/array.h"

/// Tables by key: a row for each key among the rows of a table.
namespace kv {

/// A column of a grouped table: a function of a column's values in each group.
struct GroupColumn {
  std::string name;
  std::string function;  ///< see groupFunctions()
  std::string column{};  ///< empty for `size`, which counts rows
  Missing missing = Missing::Skip;
};

/// A table whose rows are to be grouped by the values of some of its columns. A missing value is a
/// key, too: the last.
///
/// Lives: on its own.
class GroupBy {
 public:
  /// Errors: Error "KALVEX:array:UnknownColumn"; "KALVEX:array:SameName" for a key that is given
  /// twice; "KALVEX:array:NoArray" without keys; "KALVEX:array:NotSupported" for several keys of a
  /// table that was made of arrays.
  GroupBy(Table table, std::vector<std::string> keys, Where where = Where::current());

  /// The keys, ascending, and the columns, a row for each key. What is computed of several such
  /// tables by the same keys takes one step.
  /// Errors: Error "KALVEX:array:UnknownColumn"; "KALVEX:array:SameName";
  ///         "KALVEX:function:BadTypes"; "KALVEX:array:UnknownFunction".
  Table agg(std::span<const GroupColumn> columns, Where where = Where::current()) const;
  Table agg(std::initializer_list<GroupColumn> columns, Where where = Where::current()) const {
    return agg(std::span(columns.begin(), columns.size()), where);
  }

  /// One function of one column, which keeps its name.
  Table sum(std::string_view column, Where where = Where::current()) const;
  Table mean(std::string_view column, Where where = Where::current()) const;
  Table min(std::string_view column, Where where = Where::current()) const;
  Table max(std::string_view column, Where where = Where::current()) const;
  Table count(std::string_view column, Where where = Where::current()) const;
  Table std(std::string_view column, Where where = Where::current()) const;
  Table var(std::string_view column, Where where = Where::current()) const;

  /// The number of rows of each key, as the column `size`.
  Table size(Where where = Where::current()) const;

 private:
  Table of(std::string_view function, std::string_view column, Where where) const;

  Table table_;
  std::vector<std::string> keys_;
  std::vector<Array> keyArrays_;
};

/// Groups by one column or several, as in `groupBy(t, {"carrier"}).mean("arr_delay")`.
inline GroupBy groupBy(Table table, std::vector<std::string> keys, Where where = Where::current()) {
  return {std::move(table), std::move(keys), where};
}

/// Name and purpose of each function of groups.
std::vector<FunctionFacts> groupFunctions();

}  // namespace kv
