#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Chunk.h"
#include "operator/StepInputs.h"
#include "operator/scopes.h"

/// What changes while a step runs: the run of each kind of operator in a unit, and the merge of
/// what the units gathered.
namespace kv::runtime {

/// What the runs of all kinds have in common.
class OperatorRun {
 public:
  virtual ~OperatorRun() = default;

  /// The rows that a function of the step was given last, for a failure; null if none are known.
  /// Of any run but that of a flow, the rows are those that it processes then.
  virtual const GivenRows* rowsAtHand() const { return nullptr; }
};

/// One run of a step that keeps the cut.
class StepRun : public OperatorRun {
 public:
  /// The step's outputs for the next rows, one chunk each.
  /// Errors: those of the operator; the unit ends then.
  virtual std::vector<Chunk> process(const StepInputs& inputs) = 0;
};

/// One run of a flow step.
///
/// 1. The chunks of an input come in order; those of different inputs in any order.
/// 2. `next` is called until it has nothing, after each push and after each end of an input.
/// 3. At the end of all inputs, at least one chunk has been emitted: one without rows if there are
///    none, so that results have types.
class FlowRun : public OperatorRun {
 public:
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
};

/// What a unit gathered in a step that ends rows.
struct SinkResult {
  std::string partial{};        ///< of a built-in aggregate, in its byte form
  ReducedValues reduced{};      ///< of a user's reduction; null if no row reached it
  std::vector<Chunk> chunks{};  ///< of rows that are kept, or of frames: one for each input
};

/// One run of a step that ends rows.
class SinkRun : public OperatorRun {
 public:
  /// Takes the next rows.
  /// Errors: those of the operator; the unit ends then.
  virtual void process(const StepInputs& inputs) = 0;

  /// What was gathered. Called once, after the last rows of the partition.
  virtual SinkResult finish() = 0;

  /// False once further rows don't matter, as of a FlowRun.
  virtual bool wantsMore() const { return true; }

  /// Bytes of the rows that the step has kept for the result.
  virtual std::int64_t keptBytes() const { return 0; }
};

/// What all units gathered together.
struct MergedSink {
  std::vector<Chunk> arrays{};                   ///< of one row, or those that were made
  ReducedValues reduced{};                       ///< of a user's reduction
  std::vector<std::vector<Chunk>> partitions{};  ///< of rows that are kept
  std::vector<std::int64_t> partitionRows{};     ///< of made rows; none if they are cut by number
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

}  // namespace kv::runtime
