#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/GroupFold.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/Datastore.h"
#include "kv/runtime/ElementFunctions.h"
#include "operator/Operator.h"
#include "sink/WriteTarget.h"

/// All operators, one file each.
namespace kv::runtime {

/// The rows of a source, as a table of the named columns, or of all. Rows may be left out for which
/// a condition isn't true.
/// Requires: the columns are those of the source, in its order; those of the conditions can be
/// read.
OperatorPtr makeRead(std::shared_ptr<const Datastore> source);
OperatorPtr makeRead(std::shared_ptr<const Datastore> source, std::vector<std::string> columns,
                     std::vector<ReadCondition> conditions = {});

/// Columns of a table, by name: a table, or for `isContent` the one column as an array.
/// Errors of a run: "KALVEX:array:NeedsTable"; "KALVEX:array:UnknownColumn" with the columns that
///                  the table has.
OperatorPtr makeVariable(std::vector<std::string> names, bool isContent);

/// A built-in function of matching rows. `givesLogical`: refuses results of another type.
/// `spreads`: as OperatorFacts::spreads.
/// Errors of a run: those of evaluate(); "KALVEX:array:NotLogical".
OperatorPtr makeElementwise(const ElementFunction& function, bool givesLogical = false,
                            bool spreads = true);

/// What is asked of a user's function of matching rows.
struct CallableRules {
  bool givesLogical = false;  ///< refuses results of another type
  bool spreads = true;        ///< as OperatorFacts::spreads
  bool seesFrames = false;    ///< as OperatorFacts::seesFrames
};

/// A user's function of matching rows, which sees the rows in pieces or frames.
/// Errors of a run: those of UserFunctions::call; "KALVEX:array:WrongRowCount";
///                  "KALVEX:array:NotLogical".
OperatorPtr makeCallable(CallableRules rules = {});

/// The rows of each input but the first for which the first is true; all or none of them if that is
/// one value.
OperatorPtr makeFilter();

/// The input, as it is.
OperatorPtr makePass();

/// The first input, a value, for every row of the second.
OperatorPtr makeSpread();

/// Each input, aligned: from chunks of the same rows that are cut differently, runs of rows that
/// all inputs have. Errors of a run: "KALVEX:array:RowsDiffer" with the origins of both inputs.
OperatorPtr makeZip();

/// Each input, aligned, in frames of `frameRows` rows, counted within the partition; the last frame
/// may be shorter. 0: of as many as pieceRows() gives for the inputs.
/// Requires: frameRows >= 0.
/// Errors of a run: as of a zip.
OperatorPtr makeFrame(std::int64_t frameRows);

/// A user's function of chunks, which returns any number of rows; all its outputs have the same.
/// Chunks have exactly `chunkRows` rows of the partition, the last one perhaps fewer. 0: they are
/// frames.
/// Requires: chunkRows >= 0.
/// Errors of a run: as of a zip; those of UserFunctions::call; "KALVEX:array:OutputRows".
OperatorPtr makeChunkwise(std::int64_t chunkRows);

/// A user's function of partitions, which returns any number of rows for each frame; all its
/// outputs have the same. It is called until it is finished. Errors of a run: as of a zip; those of
/// UserFunctions::callPartition; "KALVEX:array:OutputRows".
OperatorPtr makePartitionwise();

/// The same for inputs that needn't have the same rows. Rows that the function hasn't used come
/// before the next frame.
/// Errors of a run: those of a function of partitions; "KALVEX:array:UnusedRows" for rows that it
///                  wasn't given; "KALVEX:array:NothingConsumed" if it would be called with the
///                  same rows again.
OperatorPtr makeGeneralPartitionwise();

/// A built-in aggregate of all rows.
OperatorPtr makeAggregate(const AggregateFunction& function, const AggregateForm& form);

/// A user's reduction of all rows: the first function is called on each chunk, the second on up to
/// 64 of its results at a time. Its inputs come from a frame step.
OperatorPtr makeReduction();

/// A row for each key among the rows of the first input, an array or a table, ascending: the keys,
/// and functions of the rows that have them, of the other inputs. Those are numbered from 0.
/// Errors of a run: "KALVEX:function:BadTypes"; "KALVEX:function:Overflow".
OperatorPtr makeGroups(std::vector<GroupedValue> values);

/// A user's reduction of the rows of each key of the first input, likewise: the first function is
/// called on the rows that a key has in a frame, without the keys, and returns one row; the second
/// on up to 64 of these rows. Its inputs come from a frame step.
/// Errors of a run: those of the functions; "KALVEX:array:WrongRowCount" for another number of
/// rows.
OperatorPtr makeKeyedReduction();

/// The rows of all inputs but the first, in the partition whose number, from 1, the first has: in
/// the order of source partitions, then of their rows.
/// Requires: 1 <= partitions <= kMaxMadePartitions.
/// Errors of a run: "KALVEX:array:PartitionIndex" with the row and its number;
///                  "KALVEX:function:BadTypes" for what isn't a number.
OperatorPtr makeRepartition(std::int64_t partitions);
inline constexpr std::int64_t kMaxMadePartitions = 1 << 20;

/// The first `rows` rows of each input, over all partitions. No more is read than that needs.
/// Requires: rows >= 0; numInputs >= 1.
OperatorPtr makeHead(std::int64_t rows, std::size_t numInputs);

/// A user's function in the client, which is handed the frames of all inputs until it is finished:
/// in the order of partitions, or in that in which they come. Gives whether it was finished.
/// Requires: numInputs >= 1.
/// Errors of a run: those of UserFunctions::callPartition.
OperatorPtr makeDeliver(std::size_t numInputs, bool isOrdered);

/// The rows of all inputs as the columns of a table, or of the only input as an array, in files.
/// Gives the number of rows.
/// Errors of a run: those of the formats, of the target and of its files: "KALVEX:sink:...".
OperatorPtr makeWrite(WriteTarget target);

/// All rows, kept as they are.
OperatorPtr makeCollect();

/// Errors: "KALVEX:executor:BadBytes" for a name that isn't in the table.
OperatorPtr readOperator(ByteReader& bytes);

/// The name, then what the operator writes.
void writeOperator(const Operator& op, ByteWriter& bytes);

}  // namespace kv::runtime
