#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "column/arrays.h"
#include "kernel/evaluateArrays.h"
#include "kv/errors/StepError.h"
#include "runtime/RuntimeSession.h"
#include "runtime/makeColumn.h"
#include "support/Seed.h"

// Arrays of several columns agree with plain loops over matrices.

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Dimensions and elements of a numeric or logical value, column by column.
struct Matrix {
  std::vector<std::size_t> dimensions;
  std::vector<double> elements;

  static Matrix of(const kxArray* value) {
    const auto dimensions = kxGetDimensions(value);
    const Value flat = host::call("kv.element.times", {value, host::makeDouble(1).get()});
    const auto* first = static_cast<const double*>(kxGetData(flat.get()));
    return {{dimensions.begin(), dimensions.end()}, {first, first + kxGetNumberOfElements(value)}};
  }

  /// `element(row, column)` for each of `rows` and of `columns` columns.
  static Matrix from(const std::vector<double>& rows, std::size_t columns,
                     const std::function<double(double, std::size_t)>& element) {
    Matrix made{{rows.size(), columns}, {}};
    for (std::size_t column = 0; column < columns; ++column) {
      for (const double row : rows) {
        made.elements.push_back(element(row, column));
      }
    }
    return made;
  }

  bool operator==(const Matrix& other) const {
    return dimensions == other.dimensions && std::ranges::equal(elements, other.elements, isSame);
  }
};

/// x times 1, 2, 3 ..., plus its own number, in column 0, 1, 2 ...
double valueAt(double x, std::size_t column) {
  return x * static_cast<double>(column + 1) + static_cast<double>(column);
}

class Arrays : public RuntimeSession {
 protected:
  using Sizes = std::function<std::vector<std::size_t>(std::size_t rows)>;

  static constexpr int kRows = 33'000;  // two pieces

  /// A column x of 1, 2, 3 ...: two pieces, no rows, and a few rows.
  Value rows() {
    std::string many = "x\n";
    for (int i = 1; i <= kRows; ++i) {
      many += std::to_string(i) + "\n";
    }
    return column(table({many, "x\n", "x\n33001\n33002\n"}), "x");
  }

  static std::vector<double> rowsFrom(int first) {
    std::vector<double> numbers;
    for (int x = first; x <= kRows + 2; ++x) {
      numbers.push_back(x);
    }
    return numbers;
  }

  /// n-by-k doubles or int32s of a column, with the given dimensions after the first.
  static Value spread(const Value& x, Sizes sizes, bool isWhole = false) {
    const Value handle = host::makeFunctionHandle("spread", [=](const host::Call& call) {
      const std::size_t rows = kxGetM(call.in(0));
      std::vector<std::size_t> dimensions = sizes(rows);
      dimensions.insert(dimensions.begin(), rows);
      Value made = matrix::from_kalvex(
          kxCreateNumericArray(dimensions, isWhole ? kxINT32_CLASS : kxDOUBLE_CLASS));
      const auto* xs = static_cast<const double*>(kxGetData(call.in(0)));
      for (std::size_t i = 0; i < kxGetNumberOfElements(made.get()); ++i) {
        const double number = valueAt(xs[i % rows], i / rows);
        if (isWhole) {
          static_cast<std::int32_t*>(kxGetMutableData(made.get()))[i] =
              static_cast<std::int32_t>(number);
        } else {
          static_cast<double*>(kxGetMutableData(made.get()))[i] = number;
        }
      }
      call.out(0, std::move(made));
    });
    return host::call("elementfun", {handle.get(), x.get()});
  }
  static Value spread(const Value& x, std::vector<std::size_t> sizes, bool isWhole = false) {
    return spread(
        x, [sizes = std::move(sizes)](std::size_t) { return sizes; }, isWhole);
  }

  /// A user's function of n-by-k arrays: the sum of each row, or NaN of what aren't doubles.
  static Value rowSums(const Value& array) {
    const Value handle = host::makeFunctionHandle("row sums", [](const host::Call& call) {
      const std::size_t rows = kxGetM(call.in(0));
      const bool isDouble = kxGetClassID(call.in(0)) == kxDOUBLE_CLASS;
      Value sums = matrix::from_kalvex(kxCreateDoubleMatrix(rows, 1, 0));
      auto* sum = static_cast<double*>(kxGetMutableData(sums.get()));
      for (std::size_t i = 0; i < kxGetNumberOfElements(call.in(0)); ++i) {
        sum[i % rows] += isDouble ? static_cast<const double*>(kxGetData(call.in(0)))[i] : kNaN;
      }
      call.out(0, std::move(sums));
    });
    return host::call("elementfun", {handle.get(), array.get()});
  }

  /// A function that returns one row of zeros of a size that depends on the rows that it is given.
  static Value oneRow(Sizes sizes) {
    return host::makeFunctionHandle("one row", [sizes = std::move(sizes)](const host::Call& call) {
      std::vector<std::size_t> dimensions = sizes(kxGetM(call.in(0)));
      dimensions.insert(dimensions.begin(), 1);
      call.out(0, matrix::from_kalvex(kxCreateNumericArray(dimensions, kxLOGICAL_CLASS)));
    });
  }

  static Value rowVector(const std::vector<double>& numbers) {
    Value row = matrix::from_kalvex(kxCreateDoubleMatrix(1, numbers.size(), 0));
    std::ranges::copy(numbers, static_cast<double*>(kxGetMutableData(row.get())));
    return row;
  }

  static Value choose(const Value& condition, const Value& a, const Value& b) {
    const Value where = host::makeFunctionHandle("kv.element.where");
    return host::call("elementfun", {where.get(), condition.get(), a.get(), b.get()});
  }
};

TEST_F(Arrays, OfSeveralColumnsAgreeWithAPlainReference) {
  const Value x = rows();
  const Value a = spread(x, {3}), cube = spread(x, {2, 3});
  const Value late = element("gt", x, 32'990), none = element("lt", x, 0);
  const Value whole = spread(x, {3}, true);
  const Value few = choose(element("gt", x, 10), whole, aggregate("min", filter(none, whole)));
  const Value add = host::makeFunctionHandle("kv.aggregate.sum");
  const auto all = rowsFrom(1), lastOnes = rowsFrom(32'991);
  const auto sum = [&](std::size_t column) {
    double total = 0;
    for (const double row : all) {
      total += valueAt(row, column);
    }
    return total;
  };
  const struct {
    const char* name;
    Value array;
    Matrix expected;
  } kCases[] = {
      {"itself", matrix::sharedCopy(a.get()), Matrix::from(all, 3, valueAt)},
      {"plus a column", element("plus", a, x),
       Matrix::from(all, 3, [](double r, std::size_t c) { return valueAt(r, c) + r; })},
      {"times a row", element("times", a, rowVector({1, 10, 100})),
       Matrix::from(all, 3,
                    [](double r, std::size_t c) {
                      return valueAt(r, c) * std::pow(10, static_cast<double>(c));
                    })},
      {"filtered", filter(late, a), Matrix::from(lastOnes, 3, valueAt)},
      {"without rows", filter(none, a), Matrix::from({}, 3, valueAt)},
      {"of a function", rowSums(a),
       Matrix::from(all, 1, [](double r, std::size_t) { return 6 * r + 3; })},
      {"of a reduction", host::call("aggregatefun", {add.get(), add.get(), a.get()}),
       Matrix::from({0}, 3, [&](double, std::size_t c) { return sum(c); })},
      {"sum", aggregate("sum", a),
       Matrix::from({0}, 3, [&](double, std::size_t c) { return sum(c); })},
      {"minimum of no rows", aggregate("min", filter(none, a)),
       Matrix::from({0}, 3, [](double, std::size_t) { return kNaN; })},
      {"in two passes", element("minus", a, aggregate("min", a)),
       Matrix::from(all, 3, [](double r, std::size_t c) { return valueAt(r, c) - valueAt(1, c); })},
      {"more dimensions", filter(late, element("minus", cube, spread(x, {2}))),
       Matrix::from(lastOnes, 6,
                    [](double r, std::size_t c) { return valueAt(r, c) - valueAt(r, c % 2); })},
      {"missing values", matrix::sharedCopy(few.get()),
       Matrix::from(all, 3, [](double r, std::size_t c) { return r > 10 ? valueAt(r, c) : kNaN; })},
      {"pieces with and without missing values", rowSums(few),
       Matrix::from(all, 1, [](double r, std::size_t) { return r > 10 ? 6 * r + 3 : kNaN; })},
  };
  std::vector<const kxArray*> arrays;
  for (const auto& row : kCases) {
    arrays.push_back(row.array.get());
  }
  const std::vector<Value> together =
      host::callMany("gather", static_cast<int>(arrays.size()), arrays);
  for (std::size_t i = 0; i < std::size(kCases); ++i) {
    Matrix actual = Matrix::of(together[i].get());
    if (std::string_view("more dimensions") == kCases[i].name) {
      EXPECT_THAT(actual.dimensions, ElementsAre(12, 2, 3));
      actual.dimensions = {12, 6};
    }
    EXPECT_TRUE(actual == kCases[i].expected) << kCases[i].name;
  }
  EXPECT_TRUE(Matrix::of(host::call("gather", {rowSums(few).get()}).get()) == kCases[12].expected)
      << "gathered before";
  EXPECT_TRUE(Matrix::of(host::call("gather", {element("plus", a, x).get()}).get()) ==
              kCases[1].expected)
      << "gathered before";
}

TEST_F(Arrays, OfOtherSizesAreRefused) {
  const Value x = rows();
  const Value a = spread(x, {3}), b = spread(x, {2});
  const auto changing = [](std::size_t rows) {
    return std::vector<std::size_t>{rows > 1000 ? 3U : 2U};
  };
  const auto reduced = [&](const Sizes& first, const Sizes& second) {
    return host::call("aggregatefun", {oneRow(first).get(), oneRow(second).get(), x.get()});
  };
  const Sizes two = [](std::size_t) { return std::vector<std::size_t>{2}; };
  const struct {
    Value array;
    const char* id;
    std::vector<std::string> arguments;  ///< parts of those after the first
  } kCases[] = {
      {element("plus", a, b), "KALVEX:array:SizesDiffer", {"n-by-3", "spread", "n-by-2", "spread"}},
      {element("plus", b, rowVector({1, 2, 3})),
       "KALVEX:array:SizesDiffer",
       {"n-by-2", "spread", "n-by-3", "a value in memory"}},
      {spread(x, changing),
       "KALVEX:array:ChunkSizes",
       {"n-by-3", "partition 1, rows 1 to 32768", "n-by-2", "partition 1, rows 32769 to 33000"}},
      {reduced(changing, two),
       "KALVEX:array:ChunkSizes",
       {"n-by-3", "partition 1", "n-by-2", "partition 1"}},
      {reduced(two, [](std::size_t rows) { return std::vector{rows + 1}; }),
       "KALVEX:array:PartialSizes",
       {"n-by-3", "n-by-2"}},
      {reduced([](std::size_t) { return std::vector{std::size_t{2} << 20}; }, two),
       "KALVEX:array:TooManyColumns",
       {"1048576"}},
      {filter(element("gt", a, 1), x), "KALVEX:array:NeedsColumn", {"an n-by-3 array"}},
  };
  for (const auto& row : kCases) {
    const auto error = errorOf([&] { host::call("gather", {row.array.get()}); });
    EXPECT_EQ(error.identifier, row.id) << error.message;
    ASSERT_EQ(error.arguments.size(), row.arguments.size() + 1) << error.message;
    for (std::size_t i = 0; i < row.arguments.size(); ++i) {
      EXPECT_THAT(error.arguments[i + 1], HasSubstr(row.arguments[i]));
    }
  }
}

/// The element of an array of these dimensions at a place of a larger one, column-major.
double at(const Chunk& array, std::int64_t row, std::int64_t first, std::int64_t second) {
  const std::int64_t k = array.trailing.empty() ? 1 : array.trailing[0];
  const bool hasSecond = array.trailing.size() > 1;
  const std::int64_t column = (k == 1 ? 0 : first) + (hasSecond ? second * k : 0);
  const auto values = array.columns[static_cast<std::size_t>(column)].values<double>();
  return values[array.rows() == 1 ? 0 : static_cast<std::size_t>(row)];
}

TEST(EvaluateArrays, ExpandsDimensionsAsAPlainLoopDoes) {
  std::mt19937_64 random(kv::test::drawSeed());
  const auto drawArray = [&](const Dimensions& trailing) {
    Chunk array{.ordinals = RowOrdinals(0, random() % 3 == 0 ? 1 : 4), .trailing = trailing};
    for (std::size_t i = 0; i < columnsIn(trailing); ++i) {
      std::vector<double> values(static_cast<std::size_t>(array.rows()));
      std::ranges::generate(values, [&] { return static_cast<double>(random() % 100); });
      array.columns.push_back(doubles(values));
    }
    return array;
  };
  const Dimensions sizes[] = {{}, {2}, {3}, {1, 2}, {2, 2}, {3, 2}};
  for (const Dimensions& a : sizes) {
    for (const Dimensions& b : sizes) {
      const Chunk left = drawArray(a), right = drawArray(b);
      const ArrayOperand inputs[] = {{&left, left.rows() == 1}, {&right, right.rows() == 1}};
      const auto evaluated = [&] {
        return evaluateArrays(*findElementFunction("minus"), inputs, 4);
      };
      const std::int64_t k = std::max(a.empty() ? 1 : a[0], b.empty() ? 1 : b[0]);
      const bool fits = a.empty() || b.empty() || a[0] == 1 || b[0] == 1 || a[0] == b[0];
      SCOPED_TRACE(describeSize(a) + " and " + describeSize(b));
      if (!fits) {
        EXPECT_THROW(evaluated(), errors::StepError);
        continue;
      }
      const Chunk result = evaluated();
      const std::int64_t last = a.size() > 1 || b.size() > 1 ? 2 : 1;
      EXPECT_EQ(result.columns.size(), static_cast<std::size_t>(k * last));
      for (std::int64_t i = 0; i < 4 * k * last; ++i) {
        const std::int64_t row = i % 4, first = i / 4 % k, second = i / 4 / k;
        EXPECT_EQ(at(result, row, first, second),
                  at(left, row, first, second) - at(right, row, first, second));
      }
    }
  }
}

}  // namespace
}  // namespace kv::runtime::test
