#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kv/error.h"

/// Arrays larger than memory, from C++: a session, tables read from files, arrays on which
/// mathematics is recorded, and the gathering of answers. Nothing is read until answers are asked
/// for; what is gathered together shares its passes over the files.
namespace kv {

class Session;
class Array;

/// Where in the user's code a call stands; captured by default arguments.
using Where = std::source_location;

/// What an aggregate does with missing values.
enum class Missing : std::uint8_t {
  Skip,       ///< as table functions do
  Propagate,  ///< as array functions do: one NaN in, NaN out
};

/// A value in memory: a column of numbers, logicals or texts; one row for a scalar.
class Value {
 public:
  using Numbers = std::vector<double>;
  using Logicals = std::vector<bool>;
  using Texts = std::vector<std::optional<std::string>>;  ///< nothing where a text is missing

  explicit Value(std::variant<Numbers, Logicals, Texts> data) : data_(std::move(data)) {}

  std::size_t rows() const;
  bool isText() const { return std::holds_alternative<Texts>(data_); }
  bool isLogical() const { return std::holds_alternative<Logicals>(data_); }

  /// Element `row` as a number; a logical gives 0 or 1.
  /// Errors: Error "KALVEX:array:NotANumber" for a text; std::out_of_range behind the last row.
  double number(std::size_t row = 0) const;

  /// Element `row` of a text column; nothing where it is missing.
  std::optional<std::string> text(std::size_t row = 0) const;

  const std::variant<Numbers, Logicals, Texts>& data() const { return data_; }

 private:
  std::variant<Numbers, Logicals, Texts> data_;
};

/// What an evaluation did.
struct Facts {
  std::int64_t rows = 0;       ///< rows read from sources in the first pass over each
  int passes = 0;              ///< over the data; 0 if everything was there already
  double seconds = 0;          ///< wall time
  std::int64_t peakBytes = 0;  ///< peak resident memory of the process so far
};

struct Gathered {
  std::vector<Value> values;  ///< one an array, in order
  Facts facts;
};

/// How a table is read.
struct ReadOptions {
  /// Types of columns by name: "double", "single", "int8" ... "uint64", "logical", "string".
  std::map<std::string, std::string> types;
};

/// The function of a block of rows: gets one span an input, all equally long, and returns as many
/// numbers.
using BlockFunction =
    std::function<std::vector<double>(std::span<const std::span<const double>> inputs)>;

/// An array that has been recorded and not computed: a thin handle; copies refer to the same array.
///
/// Only the first dimension is long. Operations on arrays of one source, filtered alike, go row by
/// row; an aggregate has one row and combines with everything.
///
/// Threads: those of its session. Lives: may outlive the session, and is then of no use.
class Array {
 public:
  struct Handle;

  explicit Array(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}

  /// Evaluates this array alone.
  /// Errors: see Session::gather.
  Value gather(Where where = Where::current()) const;

  const std::shared_ptr<const Handle>& handle() const { return handle_; }

 private:
  std::shared_ptr<const Handle> handle_;
};

/// An input of an operation: an array, a number, a logical or a text, with the user's line.
/// Operators take it so that the line is captured where the expression stands.
class Operand {
 public:
  // NOLINTBEGIN(google-explicit-constructor): conversions are the purpose
  Operand(const Array& array, Where where = Where::current()) : value_(array), where_(where) {}
  Operand(double number, Where where = Where::current()) : value_(number), where_(where) {}
  Operand(int number, Where where = Where::current())
      : value_(static_cast<double>(number)), where_(where) {}
  Operand(bool logical, Where where = Where::current()) : value_(logical), where_(where) {}
  Operand(const char* text, Where where = Where::current())
      : value_(std::string(text)), where_(where) {}
  Operand(std::string text, Where where = Where::current())
      : value_(std::move(text)), where_(where) {}
  // NOLINTEND(google-explicit-constructor)

  const std::variant<Array, double, bool, std::string>& value() const { return value_; }
  const Where& where() const { return where_; }

 private:
  std::variant<Array, double, bool, std::string> value_;
  Where where_;
};

/// Applies an element function by name ("plus", "abs", "eq", ...): see `elementFunctions`.
/// Errors: Error "KALVEX:array:UnknownFunction" with the name and those there are; wrong count or
/// types of inputs. At least one input is an array.
Array apply(std::string_view function, std::span<const Operand> inputs,
            Where where = Where::current());

/// Reduces an array to one row by name ("sum", "mean", ...): see `aggregates`.
Array aggregate(std::string_view name, const Array& input, Missing missing = Missing::Skip,
                Where where = Where::current());

/// The rows of `input` where `keep`, a logical array of as many rows, is true.
Array filter(const Array& input, const Array& keep, Where where = Where::current());

/// A function of the user's own, run chunk by chunk. An exception that it throws comes out of the
/// gathering, with the line of this call, partition and rows.
Array map(BlockFunction function, std::span<const Array> inputs, Where where = Where::current());

Array operator+(const Operand& a, const Operand& b);
Array operator-(const Operand& a, const Operand& b);
Array operator*(const Operand& a, const Operand& b);
Array operator/(const Operand& a, const Operand& b);
Array operator==(const Operand& a, const Operand& b);
Array operator!=(const Operand& a, const Operand& b);
Array operator<(const Operand& a, const Operand& b);
Array operator<=(const Operand& a, const Operand& b);
Array operator>(const Operand& a, const Operand& b);
Array operator>=(const Operand& a, const Operand& b);
Array operator&(const Operand& a, const Operand& b);
Array operator|(const Operand& a, const Operand& b);
Array operator!(const Operand& a);
Array operator-(const Operand& a);

Array abs(const Operand& a);
Array sqrt(const Operand& a);
Array exp(const Operand& a);
Array log(const Operand& a);
Array isnan(const Operand& a);

Array sum(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array mean(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array min(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array max(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array count(const Array& a, Where where = Where::current());
Array std(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array var(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());

/// Name, number of inputs and what it does, of each function that formulas and `apply` know.
struct FunctionFacts {
  std::string name;
  int inputs;
  std::string summary;
};
std::vector<FunctionFacts> elementFunctions();
std::vector<FunctionFacts> aggregates();

/// A table whose columns are arrays; a thin handle.
class Table {
 public:
  struct Handle;

  explicit Table(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}

  const std::vector<std::string>& columns() const;

  /// Errors: Error "KALVEX:array:UnknownColumn" with the name and those there are.
  Array column(std::string_view name, Where where = Where::current()) const;

  /// The rows where `keep` is true, as a table.
  Table filter(const Array& keep, Where where = Where::current()) const;

  Session& session() const;

 private:
  std::shared_ptr<const Handle> handle_;
};

/// The place where arrays live: the native core and its runtime, loaded. A process may have many.
///
/// Threads: one at a time; a call takes the session's lock.
class Session {
 public:
  struct Impl;

  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// A table over one or more CSV files: `path` is a file, a folder or a glob. Reads the header and
  /// the first block.
  /// Errors: Error with an id of "KALVEX:datastore:..." that names the file and what is wrong.
  Table read(const std::string& path, const ReadOptions& options = {},
             Where where = Where::current());

  /// Evaluates several arrays in as few passes as their dependences allow.
  ///
  /// Errors: Error of a source ("KALVEX:datastore:..."), of a user's function (its own id and
  /// message, with the line where the array was made), of rows that don't match
  /// ("KALVEX:array:RowsDiffer"); Interrupted.
  Gathered gather(std::span<const Array> arrays, Where where = Where::current());

  /// The plan that `gather` would run, as text; reads no data.
  std::string explain(std::span<const Array> arrays, Where where = Where::current());

  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

/// Asks the evaluation that runs in this process to stop; it ends within one chunk with Interrupted.
/// May be called from a signal handler.
void interrupt() noexcept;

}  // namespace kv
