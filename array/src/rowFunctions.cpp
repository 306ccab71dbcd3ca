// Selections and reductions within rows. They are functions of chunks that depend on no session: of
// the columns that an array of several dimensions is in memory, each output column is one, or is
// made of some. Which, and the dimensions of the result, are inputs, so a saved array has them.

#include "rowFunctions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <string>
#include <type_traits>
#include <utility>

#include "handles.h"
#include "hostValues.h"
#include "kv/dimensions.h"
#include "kv/host/elementTypes.h"
#include "kv/host/errors.h"
#include "kv/host/freeFunctions.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/timeValues.h"

namespace kv {

namespace {

using runtime::AggregateKind;
using runtime::ElementType;

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

template <class T>
bool isMissing(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return std::isnan(value);
  }
  return false;
}

/// Reduces columns to fewer. `target`: the output column of each.
template <class T>
class RowReducer {
 public:
  RowReducer(const Columns& columns, const Places& target, std::size_t numOutputs, bool skips)
      : columns_(columns), target_(target), numOutputs_(numOutputs), skips_(skips) {}

  /// A value for each row of each output, after `add(value, element)` for each element, or for each
  /// that isn't missing if these are skipped.
  template <class A, class Add>
  std::vector<A> fold(A first, const Add& add) const {
    return foldAll(first, [&](A& value, T element) {
      if (!skips_ || !isMissing(element)) {
        add(value, element);
      }
    });
  }

  std::vector<std::int64_t> counts() const {
    return fold(std::int64_t{0}, [](std::int64_t& count, T) { ++count; });
  }

  /// The extreme by `isBefore`; NaN if there is none, or if one is missing and none is skipped.
  template <class IsBefore>
  std::vector<T> extremes(const IsBefore& isBefore) const {
    struct Extreme {
      T value = std::numeric_limits<T>::quiet_NaN();
      bool isSet = false;
      bool isFinal = false;
    };
    const auto found = foldAll(Extreme{}, [&](Extreme& extreme, T element) {
      const bool isNew = !extreme.isSet || isBefore(element, extreme.value);
      if (!extreme.isFinal && (isMissing(element) ? !skips_ : isNew)) {
        extreme = {element, true, isMissing(element)};
      }
    });
    std::vector<T> values(found.size());
    std::ranges::transform(found, values.begin(), &Extreme::value);
    return values;
  }

  std::vector<double> means(const std::vector<std::int64_t>& counts) const {
    std::vector<double> sums =
        fold(0.0, [](double& sum, T element) { sum += static_cast<double>(element); });
    for (std::size_t i = 0; i < sums.size(); ++i) {
      sums[i] /= static_cast<double>(counts[i]);
    }
    return sums;
  }

  /// Divided by the number of values less `ddof`; NaN where that is 0 or less.
  std::vector<double> variances(std::int64_t ddof) const {
    const std::vector<std::int64_t> all = counts();
    const std::vector<double> mean = means(all);
    std::vector<double> squares(mean.size());
    forEach([&](std::size_t place, T element) {
      const double deviation = static_cast<double>(element) - mean[place];
      squares[place] += skips_ && isMissing(element) ? 0 : deviation * deviation;
    });
    for (std::size_t i = 0; i < squares.size(); ++i) {
      squares[i] = all[i] > ddof ? squares[i] / static_cast<double>(all[i] - ddof)
                                 : std::numeric_limits<double>::quiet_NaN();
    }
    return squares;
  }

 private:
  /// Calls `use(place, element)` for each element, with the place of its row in its output.
  template <class Use>
  void forEach(const Use& use) const {
    for (std::size_t column = 0; column < columns_.count; ++column) {
      std::size_t place = target_[column] * columns_.rows;
      for (const T element : columns_.at<T>(column)) {
        use(place++, element);
      }
    }
  }

  template <class A, class Add>
  std::vector<A> foldAll(A first, const Add& add) const {
    std::vector<A> folded(columns_.rows * numOutputs_, first);
    forEach([&](std::size_t place, T element) { add(folded[place], element); });
    return folded;
  }

  const Columns& columns_;
  const Places& target_;
  std::size_t numOutputs_;
  bool skips_;
};

std::vector<double> roots(std::vector<double> squares) {
  std::ranges::transform(squares, squares.begin(), [](double square) { return std::sqrt(square); });
  return squares;
}

/// Numbers of the type that an aggregate of `T` has: single for single.
template <class T>
host::Value floating(const std::vector<std::size_t>& dimensions, std::vector<double> numbers) {
  if constexpr (std::is_same_v<T, float>) {
    return valueOf(dimensions, kxSINGLE_CLASS, std::vector<float>(numbers.begin(), numbers.end()));
  }
  return valueOf(dimensions, kxDOUBLE_CLASS, std::move(numbers));
}

template <class T>
host::Value sums(const RowReducer<T>& reducer, const std::vector<std::size_t>& dimensions) {
  if constexpr (std::is_floating_point_v<T>) {
    return floating<T>(dimensions, reducer.fold(0.0, [](double& sum, T element) {
      sum += static_cast<double>(element);
    }));
  } else {
    using Sum = std::conditional_t<std::is_signed_v<T> || std::is_same_v<T, bool>, std::int64_t,
                                   std::uint64_t>;
    constexpr bool kIsSigned = std::is_signed_v<Sum>;
    const auto add = [](Sum& sum, T element) {
      if (__builtin_add_overflow(sum, static_cast<Sum>(element), &sum)) {
        host::raise("KALVEX:function:Overflow",
                    {"sum", "a sum of a row", kIsSigned ? "int64" : "uint64"});
      }
    };
    return valueOf(dimensions, kIsSigned ? kxINT64_CLASS : kxUINT64_CLASS,
                   reducer.fold(Sum{0}, add));
  }
}

/// Logicals as bytes, since a vector of them has no memory of its own.
template <class T>
host::Value extreme(const RowReducer<T>& reducer, const std::vector<std::size_t>& dimensions,
                    kxClassID type, bool isMin) {
  const auto isBefore = [isMin](T a, T b) { return isMin ? a < b : b < a; };
  if constexpr (std::is_same_v<T, bool>) {
    return nullptr;
  } else {
    return valueOf(dimensions, type, reducer.extremes(isBefore));
  }
}

template <class T>
host::Value truth(const RowReducer<T>& reducer, const std::vector<std::size_t>& dimensions,
                  bool isAny) {
  const auto add = [isAny](std::uint8_t& value, T element) {
    const bool isTrue = element != T{};
    value = static_cast<std::uint8_t>(isAny ? value != 0 || isTrue : value != 0 && isTrue);
  };
  return valueOf(dimensions, kxLOGICAL_CLASS, reducer.fold(static_cast<std::uint8_t>(!isAny), add));
}

template <class T>
host::Value reduced(AggregateKind kind, const RowReducer<T>& reducer,
                    const std::vector<std::size_t>& dimensions, kxClassID type) {
  switch (kind) {
    case AggregateKind::Sum:
      return sums(reducer, dimensions);
    case AggregateKind::Min:
      return std::is_same_v<T, bool> ? truth(reducer, dimensions, false)
                                     : extreme(reducer, dimensions, type, true);
    case AggregateKind::Max:
      return std::is_same_v<T, bool> ? truth(reducer, dimensions, true)
                                     : extreme(reducer, dimensions, type, false);
    case AggregateKind::Any:
    case AggregateKind::All:
      return truth(reducer, dimensions, kind == AggregateKind::Any);
    case AggregateKind::Count:
      return valueOf(dimensions, kxINT64_CLASS, reducer.counts());
    case AggregateKind::Mean:
      return floating<T>(dimensions, reducer.means(reducer.counts()));
    case AggregateKind::Var:
      return floating<T>(dimensions, reducer.variances(1));
    case AggregateKind::VarP:
      return floating<T>(dimensions, reducer.variances(0));
    case AggregateKind::Std:
      return floating<T>(dimensions, roots(reducer.variances(1)));
    case AggregateKind::StdP:
      return floating<T>(dimensions, roots(reducer.variances(0)));
  }
  return nullptr;
}

/// reduce(x, target, trailing)
void reduce(AggregateKind kind, bool skips, const host::Call& call) {
  call.expect(1, 3, 3);
  const Columns columns(call.in(0));
  const Places target = placesIn(call.in(1), columns.count);
  if (target.size() != columns.count) {
    host::raise("KALVEX:array:BadShape",
                {std::to_string(target.size()), "each column has a target"});
  }
  const std::size_t numOutputs = target.empty() ? 0 : std::ranges::max(target) + 1;
  const auto dimensions = dimensionsOf(columns.rows, call.in(2), numOutputs);
  const kxClassID type = kxGetClassID(call.in(0));
  const auto use = [&]<class T>() {
    const bool countsOnly = kind == AggregateKind::Count;
    const RowReducer<T> reducer(columns, target, numOutputs, skips || countsOnly);
    call.out(0, reduced(kind, reducer, dimensions, type));
  };
  if (type == kxLOGICAL_CLASS) {
    use.template operator()<bool>();
  } else if (!host::visitNumberType(type, use)) {
    host::raise("KALVEX:array:NotANumber", {kxGetClassName(call.in(0))});
  }
}

std::string functionName(std::string_view aggregate, bool skips) {
  return std::string(kRowsPrefix) + std::string(aggregate) +
         std::string(skips ? std::string_view() : kPropagate);
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
  for (const runtime::AggregateFunction& function : runtime::aggregateFunctions()) {
    for (const bool skips : {true, false}) {
      session.defineFunction(
          functionName(function.name, skips),
          [kind = function.kind, skips](const host::Call& call) { reduce(kind, skips, call); });
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
  const bool skips = reduction.missing == Missing::Skip;
  const AggregateKind kind = function->kind;
  return record({functionName(name, skips),
                 [kind, skips](const host::Call& call) { reduce(kind, skips, call); }, type,
                 targetsOf(own, reduction.axes), std::move(trailing)},
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
