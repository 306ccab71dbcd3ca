#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "kv/runtime/PositionCut.h"

struct ArrowArray;
struct ArrowArrayStream;
struct ArrowSchema;

/// Sources that aren't files: arrays in memory, and arrays that are computed where they are read.
///
/// Rows of these sources are positions 0 to n-1. All sources of n rows have one row space and go
/// together, however each is cut.
namespace kv::runtime {

class MemoryLedger;

/// How rows are cut into partitions: no request means PositionCut::ofRows().
struct CutRequest {
  std::int64_t partitionRows = 0;     ///< of each partition but the last; 0: not requested
  std::vector<std::int64_t> sizes{};  ///< of all partitions, some perhaps 0; empty: not requested
};

/// The elements of a column in memory, which is borrowed.
///
/// Lives: the memory outlives the source, unless `owner`, which the source keeps, makes it. It must
///        not change as long as arrays that read it haven't been computed.
struct MemoryColumn {
  std::string name{};  ///< of a table's column
  ElementType type = ElementType::Double;
  const void* data = nullptr;    ///< the first element; a logical is a byte, 0 or 1
  std::int64_t strideBytes = 0;  ///< from each element to the next
  /// Of texts, instead of `data`: that of a row, UTF-8, none for a missing one. Any thread calls
  /// it.
  std::function<std::optional<std::string_view>(std::int64_t row)> textAt{};
  std::shared_ptr<const void> owner{};
};

/// A table over columns in memory.
/// Errors: "KALVEX:array:SameName"; "KALVEX:datastore:Partitions" for sizes that can't be;
///         "KALVEX:datastore:TooManyRows" beyond kMaxPositions.
std::shared_ptr<const Datastore> openColumns(std::vector<MemoryColumn> columns, std::int64_t rows,
                                             const CutRequest& request = {});

/// An array over memory: a column for each place in its trailing dimensions, in column-major order.
/// Errors: those above without names.
std::shared_ptr<const Datastore> openArray(std::vector<MemoryColumn> columns, std::int64_t rows,
                                           Dimensions trailing, const CutRequest& request = {});

/// An array or table over the columns of a chunk, which it keeps.
/// Errors: those above.
std::shared_ptr<const Datastore> openChunk(const Chunk& chunk, const CutRequest& request = {});

/// A table over all that a stream of Arrow's C interface has; takes the stream, at once and whole.
/// The memory of its arrays is released with the source. It is borrowed from the producer, or, with
/// a ledger, counts there: a stream that makes its rows when it is asked for them has no other
/// owner.
///
/// Types, names: as for openParquet(). Errors: "KALVEX:datastore:BadArrow" with the producer's
/// reason, also if the stream doesn't give record batches; "KALVEX:memory:LimitTooSmall" if the
/// ledger's limit doesn't allow the next batch; those of openColumns().
std::shared_ptr<const Datastore> openArrow(ArrowArrayStream* stream, const CutRequest& request = {},
                                           MemoryLedger* ledger = nullptr);

/// The same for one array of the C interface: a table for a structure, an array of one column for
/// any other. Takes both.
std::shared_ptr<const Datastore> openArrow(ArrowSchema* schema, ArrowArray* array,
                                           const CutRequest& request = {});

/// `rows` numbers in arithmetic progression, as numpy.arange computes them from its start and the
/// number after it.
///
/// Errors: "KALVEX:datastore:OutOfRange" for integers that don't all fit the type;
///         "...:TooManyRows", "...:Partitions".
std::shared_ptr<const Datastore> openArange(ElementType type, double start, double next,
                                            std::int64_t rows, const CutRequest& request = {});
std::shared_ptr<const Datastore> openArange(ElementType type, std::int64_t start, std::int64_t step,
                                            std::int64_t rows, const CutRequest& request = {});

/// `rows` doubles from `start` to `stop`, as numpy.linspace computes them.
std::shared_ptr<const Datastore> openLinspace(double start, double stop, std::int64_t rows,
                                              bool hasEndpoint, const CutRequest& request = {});

/// An array whose elements are all the one element of `value`, as one of `type`.
///
/// Errors: "KALVEX:function:OutOfRange" if the type can't hold it; "...:TooManyRows",
///         "...:Partitions".
std::shared_ptr<const Datastore> openFull(const Column& value, ElementType type, std::int64_t rows,
                                          Dimensions trailing, const CutRequest& request = {});

/// What random numbers of an array are drawn from.
struct RandomNumbers {
  enum class Kind : std::uint8_t {
    Uniform,   ///< doubles in [0, 1): multiples of 2^-53
    Normal,    ///< doubles of mean 0 and standard deviation 1
    Integers,  ///< int64 in [low, high)
  };

  Kind kind = Kind::Uniform;
  std::int64_t low = 0;
  std::int64_t high = 1;
  std::uint64_t seed = 0;
};

/// Random numbers that depend on the seed, the partition, the row within it and the column: never
/// on threads, chunks or what the array is combined with (Philox 4x32-10; a normal number is the
/// quantile of a uniform one).
///
/// Errors: "KALVEX:datastore:EmptyRange" unless low < high.
std::shared_ptr<const Datastore> openRandom(const RandomNumbers& numbers, std::int64_t rows,
                                            Dimensions trailing, const CutRequest& request = {});

}  // namespace kv::runtime
