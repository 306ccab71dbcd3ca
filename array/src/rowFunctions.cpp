// Selections and reductions within rows. They are functions of chunks that depend on no session: of
// the columns that an array of several dimensions is in memory, each output column is one, or is
// made of some. Which, and the dimensions of the result, are inputs, so a saved array has them.

#include "rowFunctions.h"

#include <arrow/array/data.h>
#include <arrow/buffer.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <string>
#include <utility>

#include "handles.h"
#include "hostValues.h"
#include "kv/dimensions.h"
#include "kv/host/errors.h"
#include "kv/host/freeFunctions.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/elementClasses.h"
#include "kv/runtime/timeValues.h"

namespace kv {

namespace {

using runtime::AggregateFunction;
using runtime::ElementType;
using runtime::MissingRule;

constexpr std::string_view kSelect = "kv.rows.select";
constexpr std::string_view kRowsPrefix = "kv.rows.";
constexpr std::string_view kPropagate = ".propagate";

using Places = std::vector<std::size_t>;

/// A row of whole numbers.
host::Value rowOf(std::span<const std::int64_t> numbers) {
  const std::array<std::size_t, 2> dimensions{1, numbers.size()};
  host::Value row = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxDOUBLE_CLASS));
  std::ranges::transform(numbers, static_cast<double*>(kxGetMutableData(row.get())),
                         [](std::int64_t number) { return static_cast<double>(number); });
  return row;
}

/// Numbers below `end` that a file may have damaged.
Places placesIn(const kxArray* row, std::size_t end) {
  if (kxGetClassID(row) != kxDOUBLE_CLASS) {
    host::raise("KALVEX:array:NotANumber", {kxGetClassName(row)});
  }
  const std::span<const double> numbers(static_cast<const double*>(kxGetData(row)),
                                        kxGetNumberOfElements(row));
  Places places;
  for (const double number : numbers) {
    if (!(number >= 0 && number < static_cast<double>(end))) {
      host::raise("KALVEX:function:OutOfRange",
                  {"A place in a row", std::to_string(number), "rows"});
    }
    places.push_back(static_cast<std::size_t>(number));
  }
  return places;
}

/// The columns of a chunk, side by side.
struct Columns {
  const kxArray* elements;  ///< of times their microseconds
  std::size_t rows;
  std::size_t count;

  explicit Columns(const kxArray* value)
      : elements(runtime::shapedElements(value)), rows(kxGetM(elements)), count(kxGetN(elements)) {}

  template <class T>
  std::span<const T> at(std::size_t column) const {
    return {static_cast<const T*>(kxGetData(elements)) + column * rows, rows};
  }
};

/// The dimensions of what has these rows.
std::vector<std::size_t> dimensionsOf(std::size_t rows, const kxArray* trailing,
                                      std::size_t count) {
  std::vector<std::size_t> dimensions{rows};
  std::ranges::copy(placesIn(trailing, runtime::kMaxArrayColumns + 1),
                    std::back_inserter(dimensions));
  const std::size_t product = std::accumulate(dimensions.begin() + 1, dimensions.end(),
                                              std::size_t{1}, std::multiplies<>());
  if (product != count) {
    host::raise("KALVEX:array:BadShape",
                {std::to_string(product), "it has " + std::to_string(count)});
  }
  dimensions.resize(std::max<std::size_t>(dimensions.size(), 2), 1);
  return dimensions;
}

host::Value valueOver(const std::vector<std::size_t>& dimensions, kxClassID type, const void* data,
                      std::shared_ptr<const void> owner) {
  return matrix::from_kalvex(kxCreateBorrowedArray(dimensions, type, data, std::move(owner)));
}

template <class T>
host::Value valueOf(const std::vector<std::size_t>& dimensions, kxClassID type,
                    std::vector<T> elements) {
  const auto owner = std::make_shared<const std::vector<T>>(std::move(elements));
  return valueOver(dimensions, type, owner->data(), owner);
}

/// select(x, places, trailing)
void select(const host::Call& call) {
  call.expect(1, 3, 3);
  const Columns columns(call.in(0));
  const kxClassID type = kxGetClassID(columns.elements);
  const std::size_t columnBytes = columns.rows * kxGetElementSize(type);
  if (columnBytes == 0 && columns.rows > 0) {
    host::raise("KALVEX:array:NotANumber", {kxGetClassName(call.in(0))});
  }
  const Places places = placesIn(call.in(1), columns.count);
  std::vector<char> elements(columnBytes * places.size());
  const auto* from = static_cast<const char*>(kxGetData(columns.elements));
  for (std::size_t i = 0; i < places.size() && columnBytes > 0; ++i) {
    std::memcpy(elements.data() + i * columnBytes, from + places[i] * columnBytes, columnBytes);
  }
  host::Value selected =
      valueOf(dimensionsOf(columns.rows, call.in(2), places.size()), type, std::move(elements));
  const runtime::TimeArray* times = runtime::timesIn(call.in(0));
  call.out(0, times == nullptr ? std::move(selected)
                               : runtime::makeTimes(times->type, std::move(selected)));
}

/// One column of an array, in its memory.
runtime::Column columnAt(const Columns& columns, std::size_t column, ElementType type) {
  const std::size_t bytes = columns.rows * runtime::elementSize(type);
  const auto* first = static_cast<const std::uint8_t*>(kxGetData(columns.elements));
  return {
      type, static_cast<std::int64_t>(columns.rows),
      std::make_shared<arrow::Buffer>(first + column * bytes, static_cast<std::int64_t>(bytes))};
}

/// reduce(x, target, trailing): reduces columns to fewer; `target` has the output column of each.
void reduce(const AggregateFunction& function, MissingRule missing, const host::Call& call) {
  call.expect(1, 3, 3);
  const Columns columns(call.in(0));
  const Places target = placesIn(call.in(1), columns.count);
  if (target.size() != columns.count) {
    host::raise("KALVEX:array:BadShape",
                {std::to_string(target.size()), "each column has a target"});
  }
  const std::size_t numOutputs = target.empty() ? 0 : std::ranges::max(target) + 1;
  const auto dimensions = dimensionsOf(columns.rows, call.in(2), numOutputs);
  const auto type = runtime::numericTypeOf(kxGetClassID(call.in(0)));
  if (!type) {
    host::raise("KALVEX:array:NotANumber", {kxGetClassName(call.in(0))});
  }
  std::vector<std::vector<runtime::Column>> sources(numOutputs);
  for (std::size_t column = 0; column < columns.count; ++column) {
    sources[target[column]].push_back(columnAt(columns, column, *type));
  }
  const ElementType made = runtime::aggregateType(function.kind, *type);
  const std::size_t columnBytes = columns.rows * runtime::elementSize(made);
  std::vector<char> elements(columnBytes * numOutputs);
  for (std::size_t output = 0; output < numOutputs; ++output) {
    if (sources[output].empty()) {
      host::raise("KALVEX:array:BadShape",
                  {std::to_string(numOutputs), "one of them has no columns"});
    }
    const runtime::Column results = function.ofRows(sources[output], missing);
    if (columnBytes > 0) {
      std::memcpy(elements.data() + output * columnBytes, results.data()->buffers[1]->data(),
                  columnBytes);
    }
  }
  call.out(0, valueOf(dimensions, runtime::classOf(made), std::move(elements)));
}

std::string functionName(std::string_view aggregate, MissingRule missing) {
  return std::string(kRowsPrefix) + std::string(aggregate) +
         std::string(missing == MissingRule::Skip ? std::string_view() : kPropagate);
}

/// What is recorded of a function of rows.
struct RowCall {
  std::string name;
  host::NativeBody body;
  ElementType type;
  std::vector<std::int64_t> places;
  std::vector<std::int64_t> trailing;
};

Array record(RowCall row, const Array& array, const Where& where) {
  const auto session = live(array.handle().session);
  return publicCall(*session, where, [&] {
    CallInputs call;
    call.give(host::makeFunctionHandle(row.name, std::move(row.body), host::CallMode::AnyThread));
    call.lend(array.handle().value);
    call.give(rowOf(row.places));
    call.give(rowOf(row.trailing.empty() ? std::vector<std::int64_t>{1} : row.trailing));
    RowTraits traits = array.handle().traits;
    traits.made = uniqueKey();
    traits.trailing = std::move(row.trailing);
    return makeArray(session, host::call("elementfun", call.list()), row.type, std::move(traits));
  });
}

bool isNumberType(ElementType type) {
  return type != ElementType::String && type != ElementType::DateTime &&
         type != ElementType::Duration;
}

/// The place in column-major order of each element of a row after `axes` were reduced.
std::vector<std::int64_t> targetsOf(const std::vector<std::int64_t>& trailing,
                                    const std::vector<std::size_t>& axes) {
  std::vector<std::int64_t> targets{0};
  std::int64_t stride = 1;
  for (std::size_t axis = 0; axis < trailing.size(); ++axis) {
    const bool isReduced = std::ranges::find(axes, axis + 1) != axes.end();
    const std::size_t inner = targets.size();
    for (std::int64_t place = 1; place < trailing[axis]; ++place) {
      for (std::size_t i = 0; i < inner; ++i) {
        targets.push_back(targets[i] + (isReduced ? 0 : place * stride));
      }
    }
    stride *= isReduced ? 1 : trailing[axis];
  }
  return targets;
}

host::Value headOf(const host::Value& value, std::int64_t rows) {
  const host::Value count = host::makeDouble(static_cast<double>(rows));
  const host::Value operation = host::call("kalvex.bigdata.internal.lazyeval.HeadOperation",
                                           {host::makeDouble(1).get(), count.get()});
  return host::call("applyOperationBuiltin", {operation.get(), value.get()});
}

/// The first rows of some: the same for all arrays of these rows.
std::shared_ptr<const RowSpace> firstOf(const std::shared_ptr<const RowSpace>& rows,
                                        std::int64_t count) {
  if (rows == nullptr) {
    return std::make_shared<const RowSpace>(std::nullopt);
  }
  const auto known = rows->count();
  return std::make_shared<const RowSpace>(
      "first " + std::to_string(count) + " of " + std::to_string(rows->key()),
      "the first " + std::to_string(count) + " rows of " + rows->name(),
      known ? std::optional(std::min(*known, count)) : std::nullopt);
}

void requireRows(std::int64_t rows) {
  if (rows < 0) {
    raiseError("KALVEX:array:HeadRows", {std::to_string(rows)});
  }
}

}  // namespace

void defineRowFunctions(host::Session& session) {
  session.defineFunction(kSelect, select);
  for (const AggregateFunction& function : runtime::aggregateFunctions()) {
    for (const MissingRule missing : {MissingRule::Skip, MissingRule::Propagate}) {
      session.defineFunction(
          functionName(function.name, missing),
          [&function, missing](const host::Call& call) { reduce(function, missing, call); });
    }
  }
}

Array selectPlaces(const Array& array, std::span<const std::int64_t> places,
                   std::vector<std::int64_t> trailing, Where where) {
  if (array.handle().type == ElementType::String) {
    raiseError("KALVEX:array:NotANumber", {std::string(array.type())});
  }
  const auto size = static_cast<std::int64_t>(targetsOf(array.trailing(), {}).size());
  for (const std::int64_t place : places) {
    if (place < 0 || place >= size) {
      raiseError("KALVEX:array:BadIndex",
                 {std::to_string(place), "rows of " + std::to_string(size) + " elements"});
    }
  }
  return record({std::string(kSelect),
                 select,
                 array.handle().type,
                 {places.begin(), places.end()},
                 std::move(trailing)},
                array, where);
}

Array aggregateRows(std::string_view name, const Array& array, const RowReduction& reduction,
                    Where where) {
  const auto* function = runtime::findAggregateFunction(name);
  if (function == nullptr) {
    raiseError("KALVEX:array:UnknownFunction", {std::string(name), "aggregate"});
  }
  const ElementType input = array.handle().type;
  if (!isNumberType(input)) {
    raiseError("KALVEX:function:BadTypes",
               {std::string(name) + " of a row", std::string(array.type())});
  }
  const ElementType type =
      translated([&] { return runtime::aggregateType(function->kind, input); });
  const std::vector<std::int64_t>& own = array.trailing();
  std::vector<std::int64_t> trailing;
  for (std::size_t axis = 0; axis < own.size(); ++axis) {
    const bool isReduced = std::ranges::find(reduction.axes, axis + 1) != reduction.axes.end();
    if (!isReduced || reduction.keepsDimensions) {
      trailing.push_back(isReduced ? 1 : own[axis]);
    }
  }
  const MissingRule missing =
      reduction.missing == Missing::Skip ? MissingRule::Skip : MissingRule::Propagate;
  return record({functionName(name, missing),
                 [function, missing](const host::Call& call) { reduce(*function, missing, call); },
                 type, targetsOf(own, reduction.axes), std::move(trailing)},
                array, where);
}

Array head(const Array& array, std::int64_t rows, Where where) {
  requireRows(rows);
  if (array.isScalar()) {
    return array;
  }
  const auto session = live(array.handle().session);
  return publicCall(*session, where, [&] {
    RowTraits traits = array.handle().traits;
    traits.rows = firstOf(traits.rows, rows);
    traits.made = uniqueKey();
    return makeArray(session, headOf(array.handle().value, rows), array.handle().type,
                     std::move(traits));
  });
}

Table head(const Table& table, std::int64_t rows, Where where) {
  requireRows(rows);
  const Table::Handle& handle = table.handle();
  if (handle.value == nullptr) {
    std::vector<NamedArray> columns;
    for (std::size_t i = 0; i < handle.arrays.size(); ++i) {
      columns.push_back({handle.columns->names[i], head(handle.arrays[i], rows, where)});
    }
    return tableOf(columns, where);
  }
  const auto session = live(handle.session);
  return publicCall(*session, where, [&] {
    return Table(std::make_shared<const Table::Handle>(session, headOf(handle.value, rows),
                                                       handle.columns, firstOf(handle.rows, rows),
                                                       std::vector<Array>{}, handle.source));
  });
}

}  // namespace kv
