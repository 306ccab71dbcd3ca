#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "array/arrayCalls.h"
#include "array/chunkFunction.h"
#include "host/texts.h"
#include "kv/dimensions.h"
#include "kv/groups.h"

namespace kv::python {

namespace {

Array select(const Array& array, const std::vector<std::int64_t>& places,
             const std::vector<std::int64_t>& shape) {
  return inArrays(Line::Live, [&] { return selectPlaces(array, places, shape); });
}

Array reduceRows(const std::string& name, const Array& input, const std::vector<std::size_t>& axes,
                 bool keepsDimensions, bool skipMissing) {
  const Missing missing = skipMissing ? Missing::Skip : Missing::Propagate;
  return inArrays(Line::Live, [&] {
    return aggregateRows(name, input, {axes, keepsDimensions, missing});
  });
}

template <class Rows>
Rows headOf(const Rows& rows, std::int64_t count) {
  return inArrays(Line::Live, [&] { return head(rows, count); });
}

std::vector<std::string> textsOf(nb::handle row) {
  std::vector<std::string> texts;
  for (const nb::handle text : row) {
    texts.push_back(toUtf8(text, "a name"));
  }
  return texts;
}

Table grouped(const Table& table, const std::vector<std::string>& keys, const nb::list& columns) {
  std::vector<GroupColumn> made;
  for (const nb::handle column : columns) {
    std::vector<std::string> texts = textsOf(column);
    made.push_back({std::move(texts.at(0)), std::move(texts.at(1)), std::move(texts.at(2))});
  }
  return inArrays(Line::Live, [&] { return groupBy(table, keys).agg(made); });
}

Table mapRows(const std::string& name, nb::handle function, const Table& table,
              const nb::list& columns, bool isSerial, bool hasSameRows) {
  std::vector<MappedColumn> made;
  for (const nb::handle column : columns) {
    std::vector<std::string> texts = textsOf(column);
    made.push_back({std::move(texts.at(0)), std::move(texts.at(1))});
  }
  MappedTable mapped{name, tableFunction(function, table.columns(), made), made,
                     isSerial ? CallMode::Session : CallMode::AnyThread,
                     hasSameRows ? ReturnedRows::Same : ReturnedRows::Any};
  return inArrays(Line::Live, [&] { return mapTable(std::move(mapped), table); });
}

}  // namespace

void bindRows(nb::module_& module) {
  module.def("select_places", select, nb::arg("array"), nb::arg("places"), nb::arg("shape"));
  module.def("reduce_rows", reduceRows, nb::arg("name"), nb::arg("input"), nb::arg("axes"),
             nb::arg("keeps_dimensions"), nb::arg("skip_missing"));
  module.def("head_array", headOf<Array>, nb::arg("array"), nb::arg("rows"));
  module.def("head_table", headOf<Table>, nb::arg("table"), nb::arg("rows"));
  module.def("group_table", grouped,
             nb::sig("def group_table(table: TableHandle, keys: Sequence[str], "
                     "columns: list[tuple[str, str, str]]) -> TableHandle"));
  module.def("map_table", mapRows,
             nb::sig("def map_table(name: str, function: object, table: TableHandle, "
                     "columns: list[tuple[str, str]], serial: bool, same_rows: bool) -> "
                     "TableHandle"));
}

}  // namespace kv::python
