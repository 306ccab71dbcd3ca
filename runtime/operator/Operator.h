#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Datastore.h"
#include "operator/ColumnNeeds.h"
#include "operator/OperatorFacts.h"
#include "operator/runs.h"

// An operator is what one step of a stage does: one class, in one file of this folder. It is
// described once and immutable; each unit that runs the step starts a run of it, which holds what
// changes (runs.h). There are four kinds:
//
// 1. ReadOperator: the rows of a source. It has no run: the engine reads.
// 2. StepOperator: keeps the cut. Its run takes a chunk of each input, all of the same rows, and
//    gives one chunk of each output. One without state is a StatelessOperator.
// 3. FlowOperator: consumes and emits rows freely. Its run takes the chunks of each input as they
//    come, and emits chunks of its own, which start a new cut.
// 4. SinkOperator: ends rows. Its run gathers something of a partition, and a merge makes the
//    result of what all partitions gathered.
//
// To add an operator: write its file, which ends with its row (operations.h), and name that row in
// the table in operators.cpp.

namespace kv::runtime {

struct GroupedValue;
struct WriteTarget;

enum class OperatorKind : std::uint8_t { Read, Step, Flow, Sink };

/// What operators of all kinds have in common.
///
/// Threads: immutable; may be used by several threads.
class Operator {
 public:
  virtual ~Operator() = default;
  Operator(const Operator&) = delete;
  Operator& operator=(const Operator&) = delete;

  const OperatorFacts& facts() const { return facts_; }

  /// The operator as one of the four kinds; null if it is of another.
  template <class Kind>
  const Kind* as() const {
    return kind_ == Kind::kKind ? static_cast<const Kind*>(this) : nullptr;
  }

  /// What the step needs of a table that is its input `input`, when later steps need `asked` of its
  /// own result; of output `input` alone for an operator that passes its inputs.
  virtual ColumnNeeds needsOf(std::size_t input, const ColumnNeeds& asked) const;

  /// What a plan says about the step besides its label.
  virtual std::string planNote() const { return {}; }

  /// Writes what the operator's row in the table reads again; not its name.
  virtual void write(ByteWriter& bytes) const;

 protected:
  /// Only the four kinds derive from it, so that `as` is right.
  Operator(OperatorKind kind, const OperatorFacts& facts) : kind_(kind), facts_(facts) {}

 private:
  OperatorKind kind_;
  OperatorFacts facts_;
};

using OperatorPtr = std::shared_ptr<const Operator>;

/// A condition that all rows of a source must fulfil to matter.
struct ReadCondition {
  std::string column;
  std::string comparison;  ///< `lt`, `le`, `gt`, `ge` or `eq`
  std::size_t value = 0;   ///< the number of the stage's input with which the column is compared

  bool operator==(const ReadCondition&) const = default;
};

class ReadOperator : public Operator {
 public:
  static constexpr OperatorKind kKind = OperatorKind::Read;

  virtual std::shared_ptr<const Datastore> source() const = 0;

  /// The columns of the source that it reads, in the source's order.
  virtual std::vector<std::string> columns() const = 0;

  virtual std::vector<ReadCondition> conditions() const = 0;

 protected:
  explicit ReadOperator(OperatorFacts facts);
};

/// Columns that a step takes out of a table, its only input.
struct TakenColumns {
  std::vector<std::string> names;
  bool isContent = false;  ///< the result is the one column as an array, not a table
};

class StepOperator : public Operator {
 public:
  static constexpr OperatorKind kKind = OperatorKind::Step;

  /// Lives: what the scope refers to outlives the run.
  virtual std::unique_ptr<StepRun> start(const StepScope& scope) const = 0;

  /// Null for a step that does anything else than to take columns.
  virtual const TakenColumns* takenColumns() const { return nullptr; }

 protected:
  explicit StepOperator(const OperatorFacts& facts);
};

/// An operator without state: the same for each chunk.
class StatelessOperator : public StepOperator {
 public:
  virtual std::vector<Chunk> process(const StepInputs& inputs) const = 0;

  std::unique_ptr<StepRun> start(const StepScope& scope) const final;

 protected:
  using StepOperator::StepOperator;
};

class FlowOperator : public Operator {
 public:
  static constexpr OperatorKind kKind = OperatorKind::Flow;

  /// Lives: what scope and inputs refer to outlives the run.
  virtual std::unique_ptr<FlowRun> start(const StepScope& scope,
                                         std::span<const FlowInput> inputs) const = 0;

 protected:
  explicit FlowOperator(const OperatorFacts& facts);
};

class SinkOperator : public Operator {
 public:
  static constexpr OperatorKind kKind = OperatorKind::Sink;

  /// Lives: what the scope refers to outlives the run.
  virtual std::unique_ptr<SinkRun> start(const StepScope& scope) const = 0;

  virtual std::unique_ptr<SinkMerge> startMerge(const MergeScope& scope) const = 0;

  /// The functions of a step by key that calls none of the user's; null for any other step.
  virtual const std::vector<GroupedValue>* groupedValues() const { return nullptr; }

  /// Where the step writes rows; null for any other step.
  virtual const WriteTarget* target() const { return nullptr; }

 protected:
  explicit SinkOperator(OperatorFacts facts);
};

inline bool isFlow(const Operator& op) { return op.as<FlowOperator>() != nullptr; }

}  // namespace kv::runtime
