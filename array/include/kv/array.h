#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/error.h"
#include "kv/memory.h"
#include "kv/operand.h"
#include "kv/value.h"

struct ArrowArrayStream;

/// Arrays larger than memory, from C++: a session, tables read from files, arrays that record
/// mathematics, and the gathering of results. Nothing is read until results are requested. Results
/// that are gathered together share their passes over the files.
namespace kv {

/// How an aggregate treats missing values.
enum class Missing : std::uint8_t {
  Skip,       ///< ignores them, as table functions do
  Propagate,  ///< as array functions do: a NaN among the inputs makes the result NaN
};

/// What an aggregate makes of what.
struct Reduction {
  Missing missing = Missing::Skip;
  bool isWhole = false;    ///< all elements to one, not the rows of an n-by-k array to 1-by-k
  bool needsRows = false;  ///< of min and max: of no rows there is an error, not a missing value
};

/// What an evaluation did.
struct Facts {
  std::int64_t rows = 0;              ///< rows read from sources in the first pass over each
  int passes = 0;                     ///< over the data; 0 if everything was available already
  double seconds = 0;                 ///< wall time
  std::int64_t peakBytes = 0;         ///< peak resident memory of the process so far; 0: unknown
  std::int64_t memoryPeakBytes = 0;   ///< the most of its limit that the session has used so far
  std::int64_t memoryLimitBytes = 0;  ///< see Session::setMemoryLimit
  std::int64_t skippedRows = 0;   ///< rows that statistics of the files ruled out, in all passes
  std::int64_t spilledBytes = 0;  ///< written to scratch files, since they didn't fit in memory
  int spillLevels = 0;            ///< how often the same rows were spilled, at most
};

struct Gathered {
  std::vector<Value> values;  ///< one per array, in order
  Facts facts;
};

/// How a table is read.
struct ReadOptions {
  /// Types of columns by name: "double", "single", "int8" ... "uint64", "logical", "string",
  /// "datetime", "duration"; "datetime(%d.%m.%Y)" for moments written by a pattern of strptime,
  /// with %f for a fraction of a second. A Parquet file fixes the types of its columns; others are
  /// refused.
  std::map<std::string, std::string> types{};

  /// What separates the fields of CSV files: one ASCII character, "tab" or "\t"; if it is empty,
  /// the one that the first records show, of comma, tab, semicolon and bar.
  std::string separator{};

  /// The first record of a CSV file has the names of its columns; without it, they are column_1,
  /// column_2, ...
  bool hasHeader = true;

  /// Fields of CSV files that are missing values in all columns, besides empty ones; none: NA, NaN
  /// and null in columns of numbers and times.
  std::optional<std::vector<std::string>> missing{};
};

/// The function of a block of rows: takes one span per input, all of the same length, and returns
/// that many numbers.
using BlockFunction =
    std::function<std::vector<double>(std::span<const std::span<const double>> inputs)>;

/// Applies an element function by name ("plus", "abs", "eq", ...): see `elementFunctions`.
/// Errors: Error "KALVEX:array:RowsDiffer" or "KALVEX:array:DifferentSources", with the lines of
/// both, for arrays that don't have the same rows; "KALVEX:array:SizesDiffer" for arrays whose
/// other dimensions differ and aren't 1; "KALVEX:array:UnknownFunction" with the name;
/// "KALVEX:function:BadArity" and "KALVEX:function:BadTypes" for inputs for which it isn't defined;
/// "KALVEX:array:NoArray" if no input is an array; "KALVEX:array:TwoSessions" for arrays of
/// different sessions; "KALVEX:function:OutOfRange" for a constant that doesn't fit the integers
/// with which it is combined, "KALVEX:function:NegativePower" for integers to a negative power, and
/// "KALVEX:array:NotExact" for a whole number beyond 2^53 that would have to become a double.
Array apply(std::string_view function, std::span<const Operand> inputs,
            Where where = Where::current());

/// Reduces an array to one row by name ("sum", "mean", ...): see `aggregates`. A sum of integers or
/// logicals is int64, of unsigned integers uint64; instead of wrapping it raises
/// "KALVEX:function:Overflow" when it is gathered. A count is int64.
/// Errors: Error "KALVEX:array:UnknownFunction" with the name; "KALVEX:function:BadTypes".
Array aggregate(std::string_view name, const Array& input, Missing missing = Missing::Skip,
                Where where = Where::current());

/// The same in another form.
/// Errors: those above; when gathered, "KALVEX:array:NoRows".
Array aggregate(std::string_view name, const Array& input, const Reduction& reduction,
                Where where = Where::current());

/// The rows of `input` where `keep`, a logical column with the same number of rows, is true.
/// Errors: Error "KALVEX:array:NotLogical" with the type of `keep`; "KALVEX:array:NeedsColumn" with
///         its size.
Array filter(const Array& input, const Array& keep, Where where = Where::current());

/// A user's own function, run on numbers chunk by chunk; gives doubles. If it throws, gathering
/// throws the same error, with the line of this call, the partition and the rows.
/// Errors: Error "KALVEX:array:NotANumber" for an input of texts, "KALVEX:array:NoFunction" for an
///         empty function, "KALVEX:array:NoArray" without an input; when gathered,
///         "KALVEX:array:WrongRowCount" if it returns more or fewer numbers than rows.
Array map(BlockFunction function, std::span<const Array> inputs, Where where = Where::current());

/// The same with a name, which plans and errors show. If the array is saved, the name is all that
/// is saved of the function. Without one it is "kv.map".
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

/// For each row, `a` if `condition` (logical) is true, otherwise `b`: numbers in their common type,
/// or texts.
Array where(const Operand& condition, const Operand& a, const Operand& b);

Array sum(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array mean(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array min(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array max(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array count(const Array& a, Where where = Where::current());
Array std(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());
Array var(const Array& a, Missing missing = Missing::Skip, Where where = Where::current());

/// What is known of each function that formulas and `apply` know.
struct FunctionFacts {
  std::string name;
  std::string symbol;  ///< its operator in a formula; empty if it has none
  std::size_t inputs = 0;
  std::string summary;        ///< its purpose
  bool takesTexts = false;    ///< it is defined for texts
  bool isComparison = false;  ///< it compares two values, and gives a logical
};
std::vector<FunctionFacts> elementFunctions();
std::vector<FunctionFacts> aggregates();

/// A table whose columns are arrays; a thin handle. Threads and lives: as for Array.
class Table {
 public:
  struct Handle;

  explicit Table(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}
  const Handle& handle() const { return *handle_; }

  /// Names of the columns, in the order of the files.
  const std::vector<std::string>& columns() const;

  /// The types of the columns, in the same order; "unknown" for one that can't be read.
  std::vector<std::string> columnTypes() const;

  /// The types that the columns have in the files or in Arrow's memory where they are read as other
  /// ones, such as "decimal128(9, 2)" or "timestamp[ns, tz=Europe/Berlin]", in the same order;
  /// empty for a column that is read with the type it has.
  const std::vector<std::string>& columnNotes() const;

  /// The number of rows, if it is known without reading them.
  std::optional<std::int64_t> rows() const;

  /// Errors: Error "KALVEX:array:UnknownColumn" with the name and the existing columns,
  /// "KALVEX:datastore:UnsupportedColumn" for a column of a Parquet file whose type can't be read.
  Array column(std::string_view name, Where where = Where::current()) const;

  /// A uniform random number in [0, 1) for each row; each call gives different numbers. The numbers
  /// of a partition depend only on the session's seed, the calls before this one, and the
  /// partition, however often and in whatever pieces it is read. See Session::seed.
  Array rand(Where where = Where::current()) const;

  /// The rows where `keep` is true, as a table.
  /// Errors: Error "KALVEX:array:NotLogical" with the type of `keep`.
  Table filter(const Array& keep, Where where = Where::current()) const;

 private:
  std::shared_ptr<const Handle> handle_;
};

/// An array and the name under which it is saved.
struct NamedArray {
  std::string name;
  Array array;
};

/// A table of arrays with the same rows, as columns in that order. Scalars are repeated for the
/// rows of the others.
/// Errors: Error "KALVEX:array:NoArray", "KALVEX:array:SameName", "KALVEX:array:TwoSessions";
/// "KALVEX:array:RowsDiffer" or "KALVEX:array:DifferentSources" for other rows;
/// "KALVEX:array:NeedsColumn" for an array of more dimensions.
Table tableOf(std::span<const NamedArray> columns, Where where = Where::current());

/// The number of rows, as an array of one row; nothing is counted yet.
Array countRows(const Array& array, Where where = Where::current());

/// Counts the rows unless their number is known; afterwards `rows()` of this array, and of those
/// made from it row by row, returns it.
/// Errors: those of Session::gather.
void settle(const Array& array, Where where = Where::current());

/// Whether the person who opens a file trusts what evaluating its arrays would do.
enum class Trust : std::uint8_t {
  No,   ///< they may be inspected, explained, used in new arrays and saved again
  Yes,  ///< they may be evaluated: the files that they name are read, functions are called
};

/// A file or folder that saved arrays read, and what to read instead: because it was moved, or
/// because there is newer data.
///
/// `from` is a file as `sourceFiles` lists it or as it was passed to `read`, or a folder with such
/// files. If `to` is a folder, each file is replaced by the file of the same name in it. Otherwise
/// `to` is a file or a glob, and its files replace those that `from` denotes.
struct MovedData {
  std::string from;
  std::string to;
};

struct OpenOptions {
  Trust trust = Trust::No;
  std::vector<MovedData>
      data;  ///< each `from` is what the file names, even if another entry leads to it
};

/// The content of a file of saved arrays.
struct Opened {
  std::vector<NamedArray> arrays;     ///< in the order in which they were saved
  std::vector<std::string> warnings;  ///< for example about arrays that another release saved
};

/// How rows are written.
struct WriteOptions {
  /// "parquet", "csv", "ipc" or "npy". Empty: the ending of the path decides; a folder has Parquet.
  std::string format{};
  bool overwrite = false;  ///< replaces what a sink wrote there before
  /// Columns whose values name folders, `key=value/`, instead of being written to the files.
  std::vector<std::string> partitionBy{};
  bool compute = true;  ///< writes at once, not when the number of rows is gathered
};

/// Where arrays live: the native core and its runtime, loaded. A process may have many sessions.
///
/// Threads: any; calls take the session's lock, so one runs at a time.
class Session {
 public:
  struct Impl;

  /// The largest seed of random numbers: a double holds all up to it exactly, and the next.
  static constexpr std::uint64_t kMaxSeed = (std::uint64_t{1} << 53) - 1;

  static const int kMaxThreads;

  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// A table over files of CSV, Parquet, Arrow IPC (Feather) or NumPy. Each path is a file, a
  /// folder or a glob; all files have one format and the same columns. Formats other than CSV are
  /// recognised by the ending of the name or by how a file begins. Reads the headers and the first
  /// block, or the footers.
  /// Errors: Error with an id "KALVEX:datastore:..." that names the file and the fault;
  /// "KALVEX:datastore:FixedFormat" for options about CSV where the files are of another format.
  Table read(const std::vector<std::string>& paths, const ReadOptions& options = {},
             Where where = Where::current());
  Table read(const std::string& path, const ReadOptions& options = {},
             Where where = Where::current());

  /// The same for one format, whatever the files are called.
  Table readCsv(const std::vector<std::string>& paths, const ReadOptions& options = {},
                Where where = Where::current());
  Table readParquet(const std::vector<std::string>& paths, Where where = Where::current());
  Table readIpc(const std::vector<std::string>& paths, Where where = Where::current());

  /// An array over NumPy's `.npy` files, whose rows follow one another; `read` makes a table of
  /// them, with the columns `column_1`, `column_2`, ... Rows are positions, as in arrays in memory,
  /// so the array can be combined with any other of as many rows.
  /// Errors: Error "KALVEX:datastore:BadNpy", "KALVEX:datastore:DifferentArrays", or another with
  /// an id "KALVEX:datastore:..." that names the file and the fault.
  Array readNpy(const std::vector<std::string>& paths, Where where = Where::current());

  /// A table over columns in memory, which are borrowed (see Memory). The columns have as many rows
  /// and one dimension.
  /// Errors: Error "KALVEX:array:LengthsDiffer", "KALVEX:array:SameName", "KALVEX:array:BadShape",
  /// "KALVEX:array:UnknownType"; "KALVEX:datastore:Partitions" for sizes that don't fit the rows.
  Table fromColumns(std::vector<NamedMemory> columns, const Partitions& partitions = {},
                    Where where = Where::current());

  /// An array over memory of any dimensions, which is borrowed (see Memory).
  /// Errors: as for fromColumns.
  Array fromMemory(Memory memory, const Partitions& partitions = {},
                   Where where = Where::current());

  /// A table over all that a stream of Arrow's C interface has, which is taken whole and at once.
  /// Its memory is released with the last array that reads it. The types are those that Parquet
  /// files may have; columns of others can't be read.
  /// Errors: Error "KALVEX:datastore:BadArrow" with the reason that the producer gives;
  /// "KALVEX:datastore:Partitions"; "KALVEX:memory:LimitTooSmall" for a stream that is collected.
  Table fromArrow(ArrowArrayStream* stream, const Partitions& partitions = {},
                  StreamMemory memory = StreamMemory::Borrowed, Where where = Where::current());

  /// The rows from `start` by `step` up to `stop`, which isn't one of them, as numpy.arange gives
  /// them: int64 if all three are whole, otherwise double, unless the options name a type.
  /// Generated arrays take no memory. All that have as many rows, and arrays in memory, can be
  /// combined row by row.
  /// Errors: Error "KALVEX:datastore:ZeroStep"; "KALVEX:datastore:OutOfRange" for whole numbers
  /// that don't fit the type; "KALVEX:datastore:TooManyRows" beyond 2^53.
  template <Number A, Number B, Number C = int>
  Array arange(A start, B stop, C step = 1, const GeneratedOptions& options = {},
               Where where = Where::current()) {
    if constexpr (std::integral<A> && std::integral<B> && std::integral<C>) {
      return arangeOf(static_cast<std::int64_t>(start), static_cast<std::int64_t>(stop),
                      static_cast<std::int64_t>(step), options, where);
    } else {
      return arangeOf(static_cast<double>(start), static_cast<double>(stop),
                      static_cast<double>(step), options, where);
    }
  }

  /// `rows` doubles at equal distances from `start` to `stop`, which is the last unless
  /// `hasEndpoint` is false, as numpy.linspace gives them.
  Array linspace(double start, double stop, std::int64_t rows, bool hasEndpoint = true,
                 const Partitions& partitions = {}, Where where = Where::current());

  /// `rows` rows whose elements are all `value`, a constant; zeros and ones are doubles unless the
  /// options name a type.
  /// Errors: Error "KALVEX:function:OutOfRange" if the type can't hold the value.
  Array full(std::int64_t rows, const Operand& value, const GeneratedOptions& options = {});
  Array zeros(std::int64_t rows, const GeneratedOptions& options = {},
              Where where = Where::current());
  Array ones(std::int64_t rows, const GeneratedOptions& options = {},
             Where where = Where::current());

  /// Random numbers: uniform ones in [0, 1); normal ones of mean 0 and standard deviation 1; whole
  /// ones, int64, from `low` up to `high`, which isn't one of them. Each call gives different
  /// numbers. They depend only on the session's seed, the calls before this one, the partition, and
  /// the row within it. See seed().
  /// Errors: Error "KALVEX:datastore:EmptyRange" unless low < high.
  Array random(std::int64_t rows, const GeneratedOptions& options = {},
               Where where = Where::current());
  Array randomNormal(std::int64_t rows, const GeneratedOptions& options = {},
                     Where where = Where::current());
  Array randomIntegers(std::int64_t rows, std::int64_t low, std::int64_t high,
                       const GeneratedOptions& options = {}, Where where = Where::current());

  /// A constant as an array of one row. A result computed from constants only is also a constant,
  /// as if it had been written directly; see Operand.
  Array constant(const Operand& value);

  /// The number or logical as an array of one row with elements of `type`. It never adapts, unlike
  /// `constant`.
  /// Errors: Error "KALVEX:array:UnknownType"; "KALVEX:array:NotANumber" for texts;
  /// "KALVEX:function:OutOfRange" for a value that doesn't fit integers of that type.
  Array scalar(const Operand& value, std::string_view type, Where where = Where::current());

  /// Seeds the random numbers of arrays recorded from now on; the same seed gives the same numbers.
  /// A new session has seed 0.
  /// Errors: Error "KALVEX:CountTooLarge" for a seed above `kMaxSeed`.
  void seed(std::uint64_t seed, Where where = Where::current());

  /// Sets how many threads evaluations of this session may use; 1 is the calling thread alone, 0
  /// the default: the environment variable KV_THREADS or, without it, as many as the process may
  /// use. No answer depends on it, to the bit.
  /// Errors: Error "KALVEX:executor:Threads" with the number unless it is from 0 to kMaxThreads.
  void setThreads(int threads, Where where = Where::current());

  /// Sets how many bytes of memory the data of evaluations and of kept values of this session may
  /// use; 0 is the default: the environment variable KV_MEMORY_LIMIT or, without it, half of the
  /// memory that the process may use. Where it doesn't suffice, gathering raises
  /// "KALVEX:memory:LimitTooSmall" or "KALVEX:memory:ResultTooLarge" with what is needed.
  /// Errors: Error "KALVEX:memory:Limit" with the number if it is below 1 MB.
  void setMemoryLimit(std::int64_t bytes, Where where = Where::current());

  /// The same for a text with a unit, such as "512MB" (10^6 bytes) or "1.5GiB" (2^30).
  void setMemoryLimit(std::string_view limit, Where where = Where::current());

  /// Sets the folder for what doesn't fit in memory, and how many bytes of it may be used at a
  /// time, as a text with a unit. Empty ones are the defaults: the environment variables KV_SCRATCH
  /// and KV_SCRATCH_LIMIT or, without them, the system's folder for temporary files, and no limit.
  /// The files have no names, so that none is ever left. Errors: Error "KALVEX:spill:Failed" with
  /// what isn't a folder, "KALVEX:memory:Limit".
  void setScratch(const std::string& folder, std::string_view limit = {},
                  Where where = Where::current());

  /// Evaluates several arrays in as few passes as their dependencies allow.
  ///
  /// Errors: Error of a source ("KALVEX:datastore:..."), of a user's function (its own id and
  /// message, with the line where the array was made), or of inputs with different numbers of rows;
  /// "KALVEX:array:NotAColumn" for an array of several columns, which a Value can't hold;
  /// "KALVEX:array:TwoSessions"; Interrupted.
  Gathered gather(std::span<const Array> arrays, Where where = Where::current());

  /// Writes the rows of a table to files: all at once or nothing. A path with the ending of the
  /// format (.parquet, .csv, .arrow, .feather, .ipc, .npy) is one file, in the order of the rows;
  /// any other is a folder, with a file for each partition that has rows and a manifest,
  /// `_kv_manifest.json`. The bytes depend on the data alone, not on threads or memory.
  ///
  /// Result: the number of rows; with `compute` false, an array that writes when it is gathered,
  ///         and shares its pass over the files with others that are gathered together.
  /// Errors: Error "KALVEX:sink:UnknownFormat", "KALVEX:sink:OtherFormat"; when it writes,
  ///         "KALVEX:sink:TargetExists", "KALVEX:sink:NotReplaceable", "KALVEX:sink:OverSource" for
  ///         a file from which the rows come, "KALVEX:sink:CannotWrite" with path and reason,
  ///         "KALVEX:sink:NoSpace", "KALVEX:sink:UnsupportedType" and "KALVEX:sink:MixedTypes" for
  ///         columns that the format can't hold, "KALVEX:sink:MissingValue";
  ///         "KALVEX:sink:NeedsFolder", "KALVEX:sink:OnlyKeys", "KALVEX:sink:TooManyFolders" and
  ///         "KALVEX:array:UnknownColumn" for `partitionBy`; those of gather.
  Array write(const Table& table, const std::string& path, const WriteOptions& options = {},
              Where where = Where::current());

  /// The same for an array of any dimensions, as a .npy file or a folder of these.
  /// Errors: those above; "KALVEX:array:NeedsTable" for another format.
  Array write(const Array& array, const std::string& path, const WriteOptions& options = {},
              Where where = Where::current());

  /// The plan that `gather` would run, as text; reads no data.
  std::string explain(std::span<const Array> arrays, Where where = Where::current());

  /// Saves arrays with everything that was recorded for them. The file appears whole or not at all.
  /// For their sources it contains names, sizes and times, but no data.
  ///
  /// Errors: Error "KALVEX:array:NoArray", "KALVEX:array:TwoSessions"; "KALVEX:array:SameName" if
  /// two arrays have the same name; "KALVEX:save:CannotWrite" with path and reason.
  void save(const std::string& path, std::span<const NamedArray> arrays,
            Where where = Where::current());

  /// Opens saved arrays without opening their sources. A source that is gone or has changed since
  /// is refused by name when the arrays are gathered ("KALVEX:datastore:SourceGone",
  /// "KALVEX:datastore:SourceChanged"). Opening never runs anything in the file.
  ///
  /// An array that another release saved is returned with a warning and can't be gathered
  /// ("KALVEX:bigdata:array:InvalidTallVersion" with that release). A function that was passed to
  /// `map` must be defined before gathering ("KALVEX:UndefinedFunction" with its name). Without
  /// trust, gathering raises "KALVEX:load:NotTrusted" with what would have been done.
  ///
  /// Errors: Error "KALVEX:load:CannotRead" with path and reason, "KALVEX:load:Corrupt",
  /// "KALVEX:load:LaterFormat", "KALVEX:load:UnknownClass"; "KALVEX:array:NotArrays" for a file
  /// without saved arrays.
  Opened open(const std::string& path, Trust trust = Trust::No, Where where = Where::current());

  /// The same, but the arrays read other data as the options specify. The headers and first blocks
  /// of that data are read at once. Columns keep the types with which they were saved. Columns that
  /// the arrays don't read may have been added, removed or moved. Values that were gathered before
  /// they were saved don't change.
  ///
  /// Errors: those above; Error "KALVEX:datastore:UnknownSource" for data that no array reads,
  /// "KALVEX:datastore:SourceGivenTwice" for data that two options replace,
  /// "KALVEX:datastore:MissingColumn", "KALVEX:datastore:DifferentColumns" if only some files of a
  /// table are replaced; those of `read`.
  Opened open(const std::string& path, const OpenOptions& options, Where where = Where::current());

  /// Defines the function with that name, which was passed to `map` before the array was saved.
  /// Errors: Error "KALVEX:array:NameTaken" for an empty name or the name of a library function.
  void define(std::string_view name, BlockFunction function, Where where = Where::current());

  /// Asks the evaluation in progress in this session to stop; it ends within one chunk with
  /// Interrupted. If none is running, the next one stops. Other sessions aren't affected.
  /// Threads: any, without waiting for the session's lock; may be called from a signal handler.
  void interrupt() noexcept;

  /// Releases now what no array uses any more, such as the owners of borrowed memory; otherwise
  /// that happens while later arrays are recorded.
  void collect(Where where = Where::current());

  Impl& impl() { return *impl_; }
  const std::shared_ptr<Impl>& shared() const { return impl_; }

 private:
  Array arangeOf(std::int64_t start, std::int64_t stop, std::int64_t step,
                 const GeneratedOptions& options, Where where);
  Array arangeOf(double start, double stop, double step, const GeneratedOptions& options,
                 Where where);

  std::shared_ptr<Impl> impl_;
};

/// Asks every evaluation in progress in this process to stop; each ends within one chunk with
/// Interrupted. If none is running, only the next one in the process stops. An evaluation that
/// begins while others are still stopping may stop, too.
/// Threads: any; may be called from a signal handler.
void interrupt() noexcept;

}  // namespace kv
