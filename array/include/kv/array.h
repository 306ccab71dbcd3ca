#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/error.h"
#include "kv/operand.h"
#include "kv/value.h"

/// Arrays larger than memory, from C++: a session, tables read from files, arrays on which
/// mathematics is recorded, and the gathering of answers. Nothing is read until answers are asked
/// for; what is gathered together shares its passes over the files.
namespace kv {

/// What an aggregate does with missing values.
enum class Missing : std::uint8_t {
  Skip,       ///< as table functions do
  Propagate,  ///< as array functions do: one NaN in, NaN out
};

/// What an evaluation did.
struct Facts {
  std::int64_t rows = 0;       ///< rows read from sources in the first pass over each
  int passes = 0;              ///< over the data; 0 if everything was there already
  double seconds = 0;          ///< wall time
  std::int64_t peakBytes = 0;  ///< peak resident memory of the process so far; 0: unknown
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

/// Applies an element function by name ("plus", "abs", "eq", ...): see `elementFunctions`.
/// Errors: Error "KALVEX:array:UnknownFunction" with the name; "KALVEX:function:BadArity" and
/// "KALVEX:function:BadTypes" for inputs that it isn't defined for; "KALVEX:array:NoArray" without
/// an array among the inputs; "KALVEX:array:TwoSessions" for arrays of different sessions;
/// "KALVEX:function:OutOfRange" for a constant that doesn't fit the integers that it meets,
/// "KALVEX:function:NegativePower" for integers to the power of a negative one, and
/// "KALVEX:array:NotExact" for a whole number beyond 2^53 that would have to become a double.
Array apply(std::string_view function, std::span<const Operand> inputs,
            Where where = Where::current());

/// Reduces an array to one row by name ("sum", "mean", ...): see `aggregates`. A sum of integers or
/// logicals is int64, of unsigned integers uint64, and raises "KALVEX:function:Overflow" in the
/// gathering rather than wrap; a count is int64.
/// Errors: Error "KALVEX:array:UnknownFunction" with the name; "KALVEX:function:BadTypes".
Array aggregate(std::string_view name, const Array& input, Missing missing = Missing::Skip,
                Where where = Where::current());

/// The rows of `input` where `keep`, a logical array of as many rows, is true.
/// Errors: Error "KALVEX:array:NotLogical" with the type of `keep`.
Array filter(const Array& input, const Array& keep, Where where = Where::current());

/// A function of the user's own, run chunk by chunk on numbers; gives doubles. An exception that it
/// throws comes out of the gathering, with the line of this call, partition and rows.
/// Errors: Error "KALVEX:array:NotANumber" for an input of texts, "KALVEX:array:NoFunction" for an
///         empty function, "KALVEX:array:NoArray" without an input; in the gathering
///         "KALVEX:array:WrongRowCount" if it returns more or fewer numbers than rows.
Array map(BlockFunction function, std::span<const Array> inputs, Where where = Where::current());

/// The same with a name, which plans and errors show. It is all of a function that is saved with an
/// array; without one it is "kv.map".
Array map(std::string name, BlockFunction function, std::span<const Array> inputs,
          Where where = Where::current());

Array operator+(const Operand& a, const Operand& b);
Array operator-(const Operand& a, const Operand& b);
Array operator*(const Operand& a, const Operand& b);
Array operator/(const Operand& a, const Operand& b);
Array operator%(const Operand& a, const Operand& b);
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

/// Row by row `a` where `condition`, which is logical, is true, else `b`: numbers in their common
/// type, or texts.
Array where(const Operand& condition, const Operand& a, const Operand& b);

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
  std::string symbol;  ///< its operator in a formula; empty if it has none
  std::size_t inputs = 0;
  std::string summary;
};
std::vector<FunctionFacts> elementFunctions();
std::vector<FunctionFacts> aggregates();

/// A table whose columns are arrays; a thin handle. Threads and lives: as Array.
class Table {
 public:
  struct Handle;

  explicit Table(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}

  /// Names of the columns, in the order of the files.
  const std::vector<std::string>& columns() const;

  /// Errors: Error "KALVEX:array:UnknownColumn" with the name and the columns there are.
  Array column(std::string_view name, Where where = Where::current()) const;

  /// A uniform random number in [0, 1) for each row; each call gives numbers of its own. Those of
  /// one partition follow from the session's seed, the calls before this one, and the partition
  /// alone, however often and in whatever pieces it is read. See Session::seed.
  Array rand(Where where = Where::current()) const;

  /// The rows where `keep` is true, as a table.
  /// Errors: Error "KALVEX:array:NotLogical" with the type of `keep`.
  Table filter(const Array& keep, Where where = Where::current()) const;

 private:
  std::shared_ptr<const Handle> handle_;
};

/// An array, and the name under which a file keeps it.
struct NamedArray {
  std::string name;
  Array array;
};

/// Whether the person who opens a file vouches for what its arrays would do.
enum class Trust : std::uint8_t {
  No,   ///< they may be looked at, explained, used in new arrays and saved again
  Yes,  ///< they may be evaluated: the files that they name are read, functions are called
};

/// A file or folder that saved arrays read, and what they are to read in its place: because it was
/// moved, or because there is newer data.
///
/// `from` is a file as `sourceFiles` lists it, or as it was given to `read`, or a folder with such
/// files. If `to` is a folder, each file is replaced by that of the same name in it; otherwise the
/// files that `from` means by those that `to` means, a file or a glob.
struct MovedData {
  std::string from;
  std::string to;
};

struct OpenOptions {
  Trust trust = Trust::No;
  std::vector<MovedData>
      data;  ///< each `from` is what the file says, also where another one leads to
};

/// What a file of saved arrays brought.
struct Opened {
  std::vector<NamedArray> arrays;     ///< in the order in which they were saved
  std::vector<std::string> warnings;  ///< such as of arrays that another release saved
};

/// The place where arrays live: the native core and its runtime, loaded. A process may have many.
///
/// Threads: any; a call takes the session's lock, so that one works at a time.
class Session {
 public:
  struct Impl;

  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// A table over CSV files: each path is a file, a folder or a glob; all files have the same
  /// columns. Reads the headers and the first block.
  /// Errors: Error with an id of "KALVEX:datastore:..." that names the file and what is wrong.
  Table read(const std::vector<std::string>& paths, const ReadOptions& options = {},
             Where where = Where::current());
  Table read(const std::string& path, const ReadOptions& options = {},
             Where where = Where::current());

  /// A constant as an array of one row. What is computed of constants alone is a constant, too, as
  /// if it had been written; see Operand.
  Array constant(const Operand& value);

  /// Starts the random numbers of arrays recorded from here on; the same seed gives the same. A new
  /// session has seed 0.
  /// Errors: Error "KALVEX:CountTooLarge" for a seed of 2^53 or more.
  void seed(std::uint64_t seed, Where where = Where::current());

  /// Evaluates several arrays in as few passes as their dependences allow.
  ///
  /// Errors: Error of a source ("KALVEX:datastore:..."), of a user's function (its own id and
  /// message, with the line where the array was made), of inputs whose numbers of rows differ;
  /// "KALVEX:array:TwoSessions"; Interrupted.
  Gathered gather(std::span<const Array> arrays, Where where = Where::current());

  /// The plan that `gather` would run, as text; reads no data.
  std::string explain(std::span<const Array> arrays, Where where = Where::current());

  /// Saves arrays with all that was recorded of them, in a file that appears whole or not at all.
  /// Of their sources it keeps names, sizes and times, and no data.
  ///
  /// Errors: Error "KALVEX:array:NoArray", "KALVEX:array:TwoSessions", "KALVEX:array:SameName" for
  /// two arrays of one name; "KALVEX:save:CannotWrite" with path and reason.
  void save(const std::string& path, std::span<const NamedArray> arrays,
            Where where = Where::current());

  /// Opens arrays that were saved, and no source of theirs: one that is gone, or has changed since,
  /// is refused by name when the arrays are gathered ("KALVEX:datastore:SourceGone",
  /// "KALVEX:datastore:SourceChanged"). Opening never runs anything in the file.
  ///
  /// An array that another release saved comes with a warning, and can't be gathered
  /// ("KALVEX:bigdata:array:InvalidTallVersion" with that release). A function that was given to
  /// `map` has to be defined before the gathering ("KALVEX:UndefinedFunction" with its name).
  /// Without trust the gathering raises "KALVEX:load:NotTrusted" with what would have been done.
  ///
  /// Errors: Error "KALVEX:load:CannotRead" with path and reason, "KALVEX:load:Corrupt",
  /// "KALVEX:load:LaterFormat", "KALVEX:load:UnknownClass"; "KALVEX:array:NotArrays" for a file of
  /// something else.
  Opened open(const std::string& path, Trust trust = Trust::No, Where where = Where::current());

  /// The same; arrays read other data where the options say so. Of that, the headers and first
  /// blocks are read at once. Columns keep the types that they were saved with, and columns that
  /// arrays don't read may have come, gone or moved. Values that were gathered before they were
  /// saved stay as they are.
  ///
  /// Errors: besides those above, Error "KALVEX:datastore:UnknownSource" for data that no array
  /// reads, "KALVEX:datastore:SourceGivenTwice" for data that two options replace,
  /// "KALVEX:datastore:MissingColumn", "KALVEX:datastore:DifferentColumns" where only some files of
  /// a table are replaced, and those of `read`.
  Opened open(const std::string& path, const OpenOptions& options, Where where = Where::current());

  /// Defines what the function of that name, given to `map` before it was saved, does.
  /// Errors: Error "KALVEX:array:NameTaken" for an empty name, or a function of the library's own.
  void define(std::string_view name, BlockFunction function, Where where = Where::current());

  /// Asks the evaluation that runs in this session to stop; it ends within one chunk with
  /// Interrupted. If none runs, the next one stops. Other sessions don't notice.
  /// Threads: any, without waiting for the session's lock; may be called from a signal handler.
  void interrupt() noexcept;

  Impl& impl() { return *impl_; }

 private:
  std::shared_ptr<Impl> impl_;
};

/// Asks every evaluation that runs in this process to stop; each ends within one chunk with
/// Interrupted. If none runs, the next one in the process stops, and only that one. An evaluation
/// that begins while those that run are still stopping may stop too.
/// Threads: any; may be called from a signal handler.
void interrupt() noexcept;

}  // namespace kv
