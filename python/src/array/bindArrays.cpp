// The classes and functions of array/ as kvbigdata's Python modules call them: one short function
// each that converts inputs and outputs. Nothing is decided here.

#include <nanobind/nanobind.h>
#include <nanobind/stl/map.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/variant.h>
#include <nanobind/stl/vector.h>

#include <algorithm>
#include <array>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "array/arrayCalls.h"
#include "array/chunkFunction.h"
#include "array/formulas.h"
#include "array/operands.h"
#include "array/results.h"
#include "array/streams.h"
#include "formula/nearNames.h"
#include "host/texts.h"
#include "kv/error.h"
#include "kv/lazyGraph.h"

namespace kv::python {

namespace {

using Paths = std::vector<std::string>;
using Types = std::map<std::string, std::string>;

std::vector<NamedArray> named(const std::vector<std::string>& names, const nb::list& handles) {
  const std::vector<Array> arrays = toArrays(handles);
  std::vector<NamedArray> pairs;
  for (std::size_t i = 0; i < arrays.size(); ++i) {
    pairs.push_back({names.at(i), arrays[i]});
  }
  return pairs;
}

Table read(const ArraySession& self, const Paths& paths, const ReadOptions& options) {
  return inArrays(Line::Live, [&] { return self.session()->read(paths, options); });
}

Table readCsv(const ArraySession& self, const Paths& paths, const ReadOptions& options) {
  return inArrays(Line::Live, [&] { return self.session()->readCsv(paths, options); });
}

void setOptions(ReadOptions* self, const Types& types, const std::string& separator, bool hasHeader,
                const std::optional<Paths>& missing) {
  new (self) ReadOptions{types, separator, hasHeader, missing};
}

Table readParquet(const ArraySession& self, const Paths& paths) {
  return inArrays(Line::Live, [&] { return self.session()->readParquet(paths); });
}

Table readIpc(const ArraySession& self, const Paths& paths) {
  return inArrays(Line::Live, [&] { return self.session()->readIpc(paths); });
}

Array readNpy(const ArraySession& self, const Paths& paths) {
  return inArrays(Line::Live, [&] { return self.session()->readNpy(paths); });
}

Array constant(const ArraySession& self, nb::handle value) {
  const Operand operand = toOperand(value);
  return inArrays(Line::Live, [&] { return self.session()->constant(operand); });
}

Array scalar(const ArraySession& self, nb::handle value, const std::string& type) {
  const Operand operand = toOperand(value);
  return inArrays(Line::Live, [&] { return self.session()->scalar(operand, type); });
}

void setThreads(const ArraySession& self, int threads) {
  inArrays(Line::Live, [&] { self.session()->setThreads(threads); });
}

void setScratch(const ArraySession& self, const std::string& folder) {
  inArrays(Line::Live, [&] { self.session()->setScratch(folder); });
}

void setMemoryLimit(const ArraySession& self,
                    const std::variant<std::int64_t, std::string>& limit) {
  const auto set = [&](const auto& bytes) { self.session()->setMemoryLimit(bytes); };
  inArrays(Line::Live, [&] { std::visit(set, limit); });
}

nb::tuple compute(const ArraySession& self, const nb::list& handles) {
  const std::vector<Array> arrays = toArrays(handles);
  const GatheredElements gathered =
      inArrays(Line::Recorded, [&] { return gatherElements(*self.session(), arrays); });
  nb::list values;
  for (const Elements& each : gathered.values) {
    values.append(toPython(each));
  }
  return nb::make_tuple(values, toPython(gathered.facts));
}

void saveArrays(const ArraySession& self, const std::string& path,
                const std::vector<std::string>& names, const nb::list& handles) {
  const std::vector<NamedArray> arrays = named(names, handles);
  inArrays(Line::Live, [&] { self.session()->save(path, arrays); });
}

nb::tuple openArrays(const ArraySession& self, const std::string& path, bool trust) {
  const Opened opened = inArrays(
      Line::Live, [&] { return self.session()->open(path, trust ? Trust::Yes : Trust::No); });
  nb::list arrays;
  for (const NamedArray& each : opened.arrays) {
    arrays.append(nb::make_tuple(toPython(each.name), each.array));
  }
  return nb::make_tuple(arrays, opened.warnings);
}

std::string explain(const ArraySession& self, const nb::list& handles) {
  const std::vector<Array> arrays = toArrays(handles);
  return inArrays(Line::Live, [&] { return self.session()->explain(arrays); });
}

bool isColumn(const Operand& operand) {
  const auto* array = std::get_if<Array>(&operand.value());
  return array != nullptr && array->isColumn();
}

/// In arrays a missing value differs from everything, as NaN does in NumPy; `ne` of columns of
/// tables is false with one.
Array applyToOperands(std::string_view name, std::span<const Operand> operands) {
  if (name == "ne" && std::ranges::none_of(operands, isColumn)) {
    name = "differs";
  }
  return recorded([&] {
    requireSameDimensions(name, operands);
    return kv::apply(name, operands);
  });
}

Array applyFunction(const std::string& name, const nb::list& inputs) {
  return applyToOperands(name, toOperands(inputs));
}

Array applyToOne(const std::string& name, const Array& input) {
  return applyToOperands(name, std::array{Operand(input)});
}

Array applyToTwo(const std::string& name, nb::handle left, nb::handle right) {
  return applyToOperands(name, std::array{toOperand(left), toOperand(right)});
}

/// Unless they are given, columns of tables skip missing values and other arrays propagate them,
/// and all elements of an array of several dimensions are reduced.
Array reduce(const std::string& name, const Array& input, std::optional<bool> skipMissing,
             std::optional<bool> isWhole) {
  const bool skips = skipMissing.value_or(input.isColumn());
  const bool needsRows = name == "min" || name == "max";
  const Reduction reduction{skips ? Missing::Skip : Missing::Propagate,
                            isWhole.value_or(input.isScalar() || !input.trailing().empty()),
                            needsRows};
  return recorded([&] { return aggregate(name, input, reduction); });
}

Table tableOfArrays(const std::vector<std::string>& names, const nb::list& handles) {
  const std::vector<NamedArray> columns = named(names, handles);
  return inArrays(Line::Live, [&] { return tableOf(columns); });
}

Array rowCount(const Array& array) {
  return inArrays(Line::Live, [&] { return countRows(array); });
}

void settleRows(const Array& array) {
  inArrays(Line::Recorded, [&] { settle(array); });
}

Array mapChunks(const std::string& name, nb::handle function, const nb::list& inputs,
                const std::string& type, bool isSerial, const std::vector<std::int64_t>& shape,
                bool hasSameRows) {
  const std::vector<Array> arrays = toArrays(inputs);
  const CallMode mode = isSerial ? CallMode::Session : CallMode::AnyThread;
  const ReturnedRows rows = hasSameRows ? ReturnedRows::Same : ReturnedRows::Any;
  const MappedFunction mapped{name, chunkFunction(function, type), type, mode, shape, rows};
  return inArrays(Line::Live, [&] { return mapElements(mapped, arrays); });
}

Array placed(const Array& array, nb::handle elements) {
  const Elements given = toElements(elements);
  return inArrays(Line::Live, [&] { return placeBeside(array, given); });
}

Array filterArray(const Array& input, const Array& keep) {
  return recorded([&] { return filter(input, keep); });
}

Table filterTable(const Table& table, const Array& keep) {
  return inArrays(Line::Live, [&] { return table.filter(keep); });
}

/// The error with the columns that the user may have meant.
Error withNearNames(const Error& error, const std::string& name, const Table& table) {
  std::string message = error.what();
  for (const std::string& near : formula::nearNames(name, table.columns())) {
    message += (message == error.what() ? " Did you mean '" : " or '") + near + "'";
  }
  message += message == error.what() ? "" : "?";
  return {error.identifier(), message, error.arguments(), error.stack()};
}

Array column(const Table& table, const std::string& name) {
  return recorded([&] {
    try {
      return table.column(name);
    } catch (const Error& error) {
      if (error.identifier() != "KALVEX:array:UnknownColumn") {
        throw;
      }
      throw withNearNames(error, name, table);
    }
  });
}

Array evaluateText(const ArraySession& self, const Table& table, const std::string& text) {
  return inArrays(Line::Live, [&] { return recordText(*self.session(), table, text); });
}

Table filterByText(const ArraySession& self, const Table& table, const std::string& text) {
  return inArrays(Line::Live, [&] { return keepRowsByText(*self.session(), table, text); });
}

/// What an array reads, and the line that recorded it.
nb::tuple originTuple(const Array& array) {
  const Origin origin = inArrays(Line::Live, [&] { return originOf(array); });
  nb::list names;
  for (const std::string& source : origin.sources) {
    names.append(toPython(source));
  }
  return nb::make_tuple(names, toPython(origin.place.file), origin.place.line);
}

/// What a table reads, by a column that can be read.
nb::object sourcesOf(const Table& table) {
  const std::vector<std::string> types = table.columnTypes();
  const auto found = std::ranges::find_if(types, [](auto& type) { return type != "unknown"; });
  if (found == types.end()) {
    return nb::list();
  }
  const auto index = static_cast<std::size_t>(found - types.begin());
  return originTuple(column(table, table.columns()[index]))[0];
}

nb::list firstRowsOf(const nb::list& handles) {
  const std::vector<Array> arrays = toArrays(handles);
  nb::list rows;
  for (const auto& each : inArrays(Line::Live, [&] { return firstRows(arrays); })) {
    rows.append(each ? nb::object(toPython(*each)) : nb::none());
  }
  return rows;
}

std::string typeOf(const Array& array) { return std::string(array.type()); }

void bindSession(nb::module_& module) {
  nb::class_<ArraySession> session(module, "ArraySession", "A session of arrays.");
  bindMemory(session);
  bindWriting(session);
  session.def(nb::init<>())
      .def("close", &ArraySession::close)
      .def("read", read, nb::arg("paths"), nb::arg("options"))
      .def("read_csv", readCsv, nb::arg("paths"), nb::arg("options"))
      .def("read_parquet", readParquet, nb::arg("paths"))
      .def("read_ipc", readIpc, nb::arg("paths"))
      .def("read_npy", readNpy, nb::arg("paths"))
      .def("constant", constant, nb::sig("def constant(self, value: object) -> ArrayHandle"))
      .def("scalar", scalar, nb::sig("def scalar(self, value: object, type: str) -> ArrayHandle"))
      .def("set_threads", setThreads, nb::arg("threads"))
      .def("set_memory_limit", setMemoryLimit, nb::arg("limit"))
      .def("set_scratch", setScratch, nb::arg("folder"))
      .def("record_text", evaluateText, nb::arg("table"), nb::arg("formula"))
      .def("filter_by_text", filterByText, nb::arg("table"), nb::arg("formula"))
      .def("compute", compute,
           nb::sig("def compute(self, arrays: list[ArrayHandle]) -> "
                   "tuple[list[tuple[str, bool, object]], tuple[int, int, float, int]]"))
      .def("save", saveArrays,
           nb::sig("def save(self, path: str, names: list[str], arrays: list[ArrayHandle]) -> "
                   "None"))
      .def("open", openArrays,
           nb::sig("def open(self, path: str, trust: bool) -> "
                   "tuple[list[tuple[str, ArrayHandle]], list[str]]"))
      .def("explain", explain, nb::sig("def explain(self, arrays: list[ArrayHandle]) -> str"));
}

void bindHandles(nb::module_& module) {
  nb::class_<ReadOptions>(module, "ReadOptions", "How files are read.")
      .def("__init__", setOptions, nb::arg("types"), nb::arg("separator"), nb::arg("has_header"),
           nb::arg("missing").none());
  nb::class_<Array>(module, "ArrayHandle", "An array of array/.")
      .def_prop_ro("type", typeOf)
      .def_prop_ro("origin", originTuple, nb::sig("def origin(self) -> tuple[list[str], str, int]"))
      .def_prop_ro("is_logical", [](const Array& array) { return array.type() == "logical"; })
      .def_prop_ro("rows", &Array::rows)
      .def_prop_ro("trailing", &Array::trailing)
      .def_prop_ro("can_place_beside", &canPlaceBeside)
      .def_prop_ro("is_scalar", &Array::isScalar)
      .def_prop_ro("is_column", &Array::isColumn);
  nb::class_<Table>(module, "TableHandle", "A table of array/.")
      .def_prop_ro("columns", [](const Table& table) { return table.columns(); })
      .def_prop_ro("sources", sourcesOf, nb::sig("def sources(self) -> list[str]"))
      .def_prop_ro("types", &Table::columnTypes)
      .def_prop_ro("notes", &Table::columnNotes)
      .def("column", column, nb::arg("name"))
      .def("filter", filterTable, nb::arg("keep"));
}

void bindFunctions(nb::module_& module) {
  module.def("apply_function", applyFunction,
             nb::sig("def apply_function(name: str, inputs: list[object]) -> ArrayHandle"));
  module.def("apply_to_one", applyToOne, nb::arg("name"), nb::arg("input"));
  module.def("apply_to_two", applyToTwo,
             nb::sig("def apply_to_two(name: str, left: object, right: object) -> ArrayHandle"));
  module.def("reduce", reduce, nb::arg("name"), nb::arg("input"),
             nb::arg("skip_missing") = nb::none(), nb::arg("is_whole") = nb::none());
  module.def("first_rows", firstRowsOf,
             nb::sig("def first_rows(arrays: list[ArrayHandle]) -> "
                     "list[tuple[str, bool, object] | None]"));
  module.def("place_beside", placed,
             nb::sig("def place_beside(array: ArrayHandle, elements: tuple[str, object]) -> "
                     "ArrayHandle"));
  module.def("with_dimension", &withDimension, nb::arg("array"));
  module.def("filter_array", filterArray, nb::arg("input"), nb::arg("keep"));
  module.def("map_chunks", mapChunks,
             nb::sig("def map_chunks(name: str, function: object, inputs: list[ArrayHandle], "
                     "type: str, serial: bool, shape: Sequence[int], same_rows: bool) -> "
                     "ArrayHandle"));
  module.def("table_of", tableOfArrays,
             nb::sig("def table_of(names: list[str], arrays: list[ArrayHandle]) -> TableHandle"));
  module.def("count_rows", rowCount, nb::arg("array"));
  module.def("settle", settleRows, nb::arg("array"));
  module.def("array_error", makeArrayError, nb::arg("identifier"), nb::arg("arguments"));
  module.def("python_stack", liveFrames,
             nb::sig("def python_stack() -> list[tuple[str, str, int]]"));
}

}  // namespace

void bindArrays(nb::module_& module) {
  releaseLockWhileWaiting();
  bindResults(module);
  bindHandles(module);
  bindSession(module);
  bindFunctions(module);
  bindRows(module);
  bindStreams(module);
}

}  // namespace kv::python
