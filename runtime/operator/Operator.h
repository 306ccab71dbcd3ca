#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Chunk.h"
#include "operator/ColumnNeeds.h"
#include "operator/OutputTypes.h"
#include "operator/StageInput.h"
#include "operator/StepInputs.h"
#include "operator/UserFunctions.h"

// An operator is what one step of a stage does: one class, in one file of this folder. It is
// described once and immutable; each unit that runs the step starts a run of it, which holds what
// changes. There are two kinds:
//
// 1. Operators whose output rows keep the cut: a StepRun takes a chunk of each input, all of the
//    same rows, and gives one chunk of each output.
// 2. Flow operators consume and emit rows freely: a FlowRun takes the chunks of each input as they
//    come, and emits chunks of its own, which start a new cut.
//
// To add an operator: write its file, declare what makes it in operators.h, and add its row to the
// table in operators.cpp, by which it is read from bytes.

namespace kv::runtime {

struct GroupedValue;

/// A condition that all rows of a source must fulfil to matter.
struct ReadCondition {
  std::string column;
  std::string comparison;  ///< `lt`, `le`, `gt`, `ge` or `eq`
  std::size_t value = 0;   ///< the number of the stage's input with which the column is compared

  bool operator==(const ReadCondition&) const = default;
};

/// What an operator does to rows.
enum class RowEffect : std::uint8_t {
  Create,  ///< brings rows into the stage
  Keep,    ///< a row of output for each row of input
  /// Rows chosen one by one, in order: those for which input 0, a logical, is true. Output i has
  /// the chosen rows of input i + 1. Rules rely on all of this; an operator that chooses otherwise,
  /// such as the first rows of a partition, renews them.
  Filter,
  Renew,  ///< rows of its own, made from those of its inputs in each partition
  End,    ///< no rows: what it gathers leaves the stage when the rows of a partition have ended
};

/// In the unit without rows, which runs when all others have ended: the types that the functions
/// of steps have returned, by step. The function of any other step is called once, on no rows.
using KnownTypes = std::map<std::size_t, std::vector<ArrayType>>;

/// The step that a StepRun runs, in one unit.
///
/// Lives: longer than the StepRun.
struct StepScope {
  std::size_t step = 0;  ///< its number in the stage
  std::string_view label;
  std::size_t numOutputs = 1;
  UserFunctions& functions;
  OutputTypes& types;  ///< that the step's function has returned in this unit
  const KnownTypes* typesForNoRows = nullptr;  ///< null but in the unit without rows
  bool isFramed = false;       ///< each chunk is a frame, which a user's function sees as it is
  std::int64_t frameRows = 0;  ///< how many rows functions are to see; 0: none was asked for
  std::int64_t numPartitions = 1;
};

/// An input of a flow step: rows that come in chunks, or a value.
struct FlowInput {
  std::string_view origin{};          ///< what made it, for messages
  const StageInput* value = nullptr;  ///< null for rows
  std::size_t valueNumber = 0;        ///< of the value among the stage's inputs
};

/// The step whose results are merged.
///
/// Lives: longer than the merge.
struct MergeScope {
  std::size_t step = 0;
  std::string_view label;
  UserFunctions& functions;
  std::int64_t numPartitions = 1;
};

/// What a unit gathered in a step that ends rows.
struct SinkResult {
  std::string partial{};        ///< of a built-in aggregate, in its byte form
  ReducedValues reduced{};      ///< of a user's reduction; null if no row reached it
  std::vector<Chunk> chunks{};  ///< of rows that are kept, or of frames: one for each input
};

/// What all units gathered together.
struct MergedSink {
  std::vector<Chunk> arrays{};                   ///< of one row, or those that were made
  ReducedValues reduced{};                       ///< of a user's reduction
  std::vector<std::vector<Chunk>> partitions{};  ///< of rows that are kept
  std::vector<std::int64_t> partitionRows{};     ///< of made rows; none if they are cut by number
};

/// One run of a step in a unit.
class StepRun {
 public:
  virtual ~StepRun() = default;

  /// The step's outputs for the next rows, one chunk each; none for a step that ends rows.
  /// Errors: those of the operator; the unit ends then.
  virtual std::vector<Chunk> process(const StepInputs& inputs) = 0;

  /// Called once, after the last rows of the partition.
  virtual SinkResult finish() { return {}; }

  /// Of a step that ends rows: false once further rows don't matter, as of a FlowRun.
  virtual bool wantsMore() const { return true; }

  /// Bytes of the rows that the step has kept for the result.
  virtual std::int64_t keptBytes() const { return 0; }

  /// The rows that a function of the step was given last, for a failure; null if they are those
  /// that the step processes.
  virtual const GivenRows* rowsAtHand() const { return nullptr; }
};

/// One run of a flow step in a unit.
///
/// 1. The chunks of an input come in order; those of different inputs in any order.
/// 2. `next` is called until it has nothing, after each push and after each end of an input.
/// 3. At the end of all inputs, at least one chunk has been emitted: one without rows if there are
///    none, so that results have types.
class FlowRun {
 public:
  virtual ~FlowRun() = default;

  /// Takes the next rows of an input.
  virtual void push(std::size_t input, const Chunk& rows) = 0;

  /// Notes that all rows of an input have come.
  virtual void finishInput(std::size_t input) = 0;

  /// The next rows to emit, one chunk for each output, all of the same rows; none until more has
  /// come.
  /// Errors: those of the operator; the unit ends then.
  virtual std::optional<std::vector<Chunk>> next() = 0;

  /// False once further rows of an input don't matter. The source isn't read on when no step wants
  /// more; the rest of the partition isn't counted then.
  virtual bool wantsMore(std::size_t /*input*/) const { return true; }

  /// The rows that a function of the step was given last, for a failure; null if there are none.
  virtual const GivenRows* rowsAtHand() const { return nullptr; }
};

/// Merges what the units of a stage gathered in one step.
class SinkMerge {
 public:
  virtual ~SinkMerge() = default;

  /// Called for partitions 0, 1, 2 ..., then perhaps for the unit without rows.
  virtual void add(SinkResult result) = 0;
  virtual MergedSink finish() = 0;

  /// False once the results of further partitions don't matter. They aren't read when no step of
  /// the stage wants more.
  virtual bool wantsMore() const { return true; }

  /// Bytes of the rows that were kept of all partitions so far.
  virtual std::int64_t keptBytes() const { return 0; }
};

/// Threads: immutable; may be used by several threads.
class Operator {
 public:
  virtual ~Operator() = default;

  /// Its name in bytes: that of its row in the table of operators.
  virtual std::string_view kind() const = 0;

  virtual RowEffect rowEffect() const { return RowEffect::Keep; }

  /// True for an operator of the second kind.
  virtual bool isFlow() const { return false; }

  /// True if output i has the rows of input i, unchanged, for each i.
  virtual bool passesInputs() const { return false; }

  /// True for a flow operator some of whose inputs may be values.
  virtual bool takesValues() const { return false; }

  /// False if the inputs of the step may have different rows.
  virtual bool combinesRows() const { return true; }

  /// True if the step calls a user-defined function.
  virtual bool callsUser() const { return false; }

  /// True if each run of the step shows outside of it, so that it must not be repeated.
  virtual bool hasSideEffects() const { return false; }

  /// True if all rows of its input leave the stage.
  virtual bool keepsRows() const { return false; }

  /// True if what the step gathers are rows again, of a row space of their own: those of its first
  /// input decide on it.
  virtual bool makesRows() const { return false; }

  /// Into how many partitions the step puts the rows that it makes; 0: their number decides.
  virtual std::int64_t madePartitions() const { return 0; }

  /// The functions of a step by key that calls none of the user's; null for any other step.
  virtual const std::vector<GroupedValue>* groupedValues() const { return nullptr; }

  /// True if that function can see where its rows end: it is given frames instead of pieces.
  virtual bool seesFrames() const { return false; }

  /// How many rows users' functions are to see at a time from this step on; 0: as before.
  virtual std::int64_t frameRows() const { return 0; }

  /// True if an input of one row is repeated for every row of the others.
  virtual bool spreads() const { return true; }

  /// What the step needs of a table that is its input `input`, when later steps need `asked` of its
  /// own result; of output `input` alone for an operator that passes its inputs.
  virtual ColumnNeeds needsOf(std::size_t input, const ColumnNeeds& asked) const;

  /// The source that the operator reads; null but for `read`.
  virtual std::shared_ptr<const Datastore> source() const { return nullptr; }

  /// The columns of the source that it reads, in the source's order.
  virtual std::vector<std::string> columns() const { return {}; }

  /// The conditions of `read`.
  virtual std::vector<ReadCondition> conditions() const { return {}; }

  /// The function of matching rows that the step is; null for any other step.
  virtual const ElementFunction* elementFunction() const { return nullptr; }

  /// True if the step takes columns of a table, its only input.
  virtual bool takesColumns() const { return false; }

  /// The name of the column that the step takes out of a table, as an array; none for a table.
  virtual std::optional<std::string> contentColumn() const { return std::nullopt; }

  /// What a plan says about the step besides its label.
  virtual std::string planNote() const { return {}; }

  /// Requires: the operator isn't a flow operator.
  virtual std::unique_ptr<StepRun> start(const StepScope& scope) const;

  /// Requires: the operator is a flow operator.
  /// Lives: what scope and inputs refer to outlives the run.
  virtual std::unique_ptr<FlowRun> startFlow(const StepScope& scope,
                                             std::span<const FlowInput> inputs) const;

  /// Requires: the operator ends rows.
  virtual std::unique_ptr<SinkMerge> startMerge(const MergeScope& scope) const;

  /// Writes what the operator's row in the table reads again; not its kind.
  virtual void write(ByteWriter& bytes) const;
};

/// Refuses a result that isn't logical.
/// Errors: "KALVEX:array:NotLogical" with the label and the type.
void requireLogical(std::string_view label, const Chunk& result);

/// The outputs of an operator for inputs that are whole; `functions`: null if it calls none. An
/// input of a single row beside longer ones is a value for all of their rows.
/// Requires: at least one input.
std::vector<Chunk> processOnce(const Operator& op, std::string_view label,
                               const std::vector<Chunk>& inputs,
                               UserFunctions* functions = nullptr);

/// An operator without state: the same for each chunk.
class StatelessOperator : public Operator {
 public:
  virtual std::vector<Chunk> process(const StepInputs& inputs) const = 0;

  std::unique_ptr<StepRun> start(const StepScope& scope) const final;
};

}  // namespace kv::runtime
