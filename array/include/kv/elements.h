#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kv/array.h"
#include "kv/callMode.h"

/// Results as elements of their own type, without a copy of numbers, for front ends that have
/// arrays of their own.
namespace kv {

/// Numbers, logicals or times in memory, column-major.
struct NumberElements {
  /// "double", "single", "int8" ... "uint64", "logical" (a byte, 0 or 1), "datetime" and "duration"
  /// (microseconds as int64, the smallest one if missing).
  std::string_view type;
  const void* data = nullptr;
  std::shared_ptr<const void> owner;  ///< of `data`, which no one changes
};

/// Texts as Arrow's large_utf8 has them.
struct TextElements {
  std::vector<std::int64_t> offsets;   ///< one more than rows
  std::string bytes;                   ///< UTF-8
  std::vector<std::uint8_t> validity;  ///< a bit per row, lowest first, 0 if missing
};

/// A result in memory.
///
/// The missing values of an array of integers or logicals are NaN, and then `elements` are doubles.
struct Elements {
  std::string_view type;  ///< of the array
  bool isScalar = false;
  std::vector<std::size_t> dimensions;  ///< of rows, and those of Array::trailing()
  std::variant<NumberElements, TextElements> elements;
};

struct GatheredElements {
  std::vector<Elements> values;  ///< one per array, in order
  Facts facts;
};

/// Evaluates several arrays in as few passes as their dependencies allow.
/// Errors: those of Session::gather, except that arrays may have several columns.
GatheredElements gatherElements(Session& session, std::span<const Array> arrays,
                                Where where = Where::current());

/// The function of a front end's user on a chunk of each input; inputs have as many rows as each
/// other, or one. It returns as many rows, unless it is said to return any number.
using ElementsFunction = std::function<Elements(std::vector<Elements> inputs)>;

/// Which rows a function of chunks returns.
enum class ReturnedRows : std::uint8_t {
  Same,  ///< as many as it is given: what is left of 32,768 rows of the source
  Any,   ///< any number for 32,768 rows that are left; they are rows of their own
};

/// Such a function, and what is known of it.
struct MappedFunction {
  std::string name;  ///< for plans and messages
  ElementsFunction function;
  std::string type;  ///< of the elements that it returns
  CallMode mode = CallMode::Session;
  std::vector<std::int64_t> trailing{};  ///< the dimensions of a row of what it returns
  ReturnedRows rows = ReturnedRows::Same;
};

/// A user's own function on arrays of any types, run chunk by chunk. If it throws, gathering throws
/// the same error, with the line of this call, the partition and the rows.
/// Errors: Error "KALVEX:array:UnknownType", "KALVEX:array:NoArray", "KALVEX:array:TwoSessions";
///         when gathered, "KALVEX:array:WrongRowCount" if it returns more or fewer rows, and
///         "KALVEX:array:WrongType" or "KALVEX:array:WrongShape" if it returns other rows.
Array mapElements(MappedFunction function, std::span<const Array> inputs,
                  Where where = Where::current());

/// The function of a front end's user on a chunk of each column of a table; it returns columns of
/// the same number of rows each.
using TableFunction = std::function<std::vector<Elements>(std::vector<Elements> columns)>;

/// A column that such a function returns.
struct MappedColumn {
  std::string name;
  std::string type;
};

/// Such a function, and what is known of it.
struct MappedTable {
  std::string name;  ///< for plans and messages
  TableFunction function;
  std::vector<MappedColumn> columns;
  CallMode mode = CallMode::Session;
  ReturnedRows rows = ReturnedRows::Same;
};

/// A user's own function on all columns of a table, run chunk by chunk.
/// Errors: as for mapElements; Error "KALVEX:array:SameName" for columns that it returns.
Table mapTable(MappedTable function, const Table& table, Where where = Where::current());

/// One row in memory as an array that goes with any rows. It never adapts.
/// Requires: the first of its dimensions is 1.
Array constantRow(Session& session, const Elements& row, Where where = Where::current());

/// A few of the first rows of arrays: of those made by built-in row-wise steps from rows that
/// opening the sources has read, or that are in memory. Opens no file, calls no user's function,
/// and leaves the arrays as they are.
///
/// Result: one for each array; none for an array of which no rows are known.
std::vector<std::optional<Elements>> firstRows(std::span<const Array> arrays,
                                               Where where = Where::current());

/// True if elements in memory can be placed beside the rows of an array of a file: these are all
/// rows of its source, and it is known how many each partition has: from the footers of Parquet
/// files, or once a column has been gathered.
bool canPlaceBeside(const Array& array);

/// Elements in memory as an array with the rows of `array`, by position.
/// Requires: canPlaceBeside(array); as many rows.
Array placeBeside(const Array& array, const Elements& elements, Where where = Where::current());

/// The array with a dimension of 1 after its last.
Array withDimension(const Array& array);

/// Refuses arrays that NumPy would align by their last dimensions and not by rows: each must have
/// as many dimensions as the others, or, if it has no rows, as many as their rows, or none.
/// Errors: Error "KALVEX:array:NotBroadcast" with the function and both numbers of dimensions.
void requireSameDimensions(std::string_view function, std::span<const Operand> inputs,
                           Where where = Where::current());

}  // namespace kv
