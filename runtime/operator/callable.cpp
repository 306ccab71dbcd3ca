// A user's function of matching rows. It is given pieces or frames (column/pieces.h): where they
// end follows from the data alone, so that how the rows were read can't be seen in its answer. Its
// results have the rows of its inputs, and so their ordinals.

#include <optional>
#include <utility>

#include "column/concatenate.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"
#include "operator/StepFunction.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class CallableRun final : public StepRun {
 public:
  CallableRun(const StepScope& scope, bool givesLogical)
      : scope_(scope), function_(scope), givesLogical_(givesLogical) {}

  std::vector<Chunk> process(const StepInputs& inputs) override {
    function_.forget();
    const Chunk& rows = inputs.sharedRows();
    std::vector<Chunk> results =
        rows.rows() > 0 ? callOnPieces(inputs, rows) : resultsWithoutRows(inputs, rows);
    for (Chunk& result : results) {
      result.partition = rows.partition;
      result.ordinals = rows.ordinals;
    }
    return results;
  }

  const GivenRows* rowsAtHand() const override { return function_.rowsAtHand(); }

 private:
  /// The rows at hand are a frame; or of one piece, or of several where rows of the function's
  /// inputs are wide.
  std::vector<Chunk> callOnPieces(const StepInputs& inputs, const Chunk& rows) {
    const std::vector<FunctionInput> whole = inputs.functionInputs();
    if (scope_.isFramed) {
      return call(rows, whole);
    }
    const std::int64_t rowsEach = pieceRows(rowTypes(whole));
    std::vector<std::vector<Chunk>> parts(scope_.numOutputs);
    for (std::int64_t first = 0; first < rows.rows();) {
      const std::int64_t last = endOfPiece(rows.ordinals, first, rowsEach);
      std::vector<FunctionInput> piece = whole;
      for (FunctionInput& input : piece) {
        if (input.rows) {
          input.rows = slice(*input.rows, first, last - first);
        }
      }
      const Chunk given{rows.partition, rows.ordinals.slice(first, last - first), nullptr, {}};
      std::vector<Chunk> results = call(given, piece);
      for (std::size_t i = 0; i < results.size(); ++i) {
        parts[i].push_back(std::move(results[i]));
      }
      first = last;
    }
    std::vector<Chunk> joined;
    for (const std::vector<Chunk>& part : parts) {
      joined.push_back(concatenateArrays(part));
    }
    return joined;
  }

  /// Types of the columns that the function is given rows of.
  static std::vector<ElementType> rowTypes(const std::vector<FunctionInput>& inputs) {
    std::vector<ElementType> types;
    for (const FunctionInput& input : inputs) {
      if (input.rows) {
        types.insert(types.end(), input.rows->columns.size(), input.rows->type());
      }
    }
    return types;
  }

  /// The end of the rows that are in the same piece as row `first`.
  static std::int64_t endOfPiece(const RowOrdinals& ordinals, std::int64_t first,
                                 std::int64_t rowsEach) {
    const std::int64_t nextPiece = (ordinals.at(first) / rowsEach + 1) * rowsEach;
    std::int64_t low = first + 1;
    std::int64_t high = ordinals.rows();
    while (low < high) {
      const std::int64_t middle = low + (high - low) / 2;
      (ordinals.at(middle) < nextPiece ? low : high) =
          ordinals.at(middle) < nextPiece ? middle + 1 : middle;
    }
    return low;
  }

  std::vector<Chunk> call(const Chunk& rows, const std::vector<FunctionInput>& inputs) {
    std::vector<Chunk> results = function_.call(rows, inputs);
    for (const Chunk& result : results) {
      if (result.rows() != rows.rows()) {
        errors::raiseStep("KALVEX:array:WrongRowCount",
                          {std::string(scope_.label), std::to_string(rows.rows()),
                           std::to_string(result.rows())});
      }
      if (givesLogical_) {
        requireLogical(scope_.label, result);
      }
    }
    return results;
  }

  std::vector<Chunk> resultsWithoutRows(const StepInputs& inputs, const Chunk& rows) {
    std::optional<std::vector<Chunk>> known = function_.resultsWithoutRows();
    return known ? *std::move(known) : call(rows, inputs.functionInputs());
  }

  StepScope scope_;
  StepFunction function_;
  bool givesLogical_;
};

class Callable final : public StepOperator {
 public:
  explicit Callable(CallableRules rules)
      : StepOperator({.name = "callable",
                      .callsUser = true,
                      .seesFrames = rules.seesFrames,
                      .spreads = rules.spreads}),
        givesLogical_(rules.givesLogical) {}

  std::unique_ptr<StepRun> start(const StepScope& scope) const override {
    return std::make_unique<CallableRun>(scope, givesLogical_);
  }

  void write(ByteWriter& bytes) const override {
    bytes.flag(givesLogical_);
    bytes.flag(facts().spreads);
    bytes.flag(facts().seesFrames);
  }

 private:
  bool givesLogical_;
};

}  // namespace

OperatorPtr makeCallable(CallableRules rules) { return std::make_shared<Callable>(rules); }

namespace {

OperatorPtr readCallable(ByteReader& bytes) {
  CallableRules rules{.givesLogical = bytes.flag()};
  rules.spreads = bytes.flag();
  rules.seesFrames = bytes.flag();
  return makeCallable(rules);
}

/// A function that checks frames, whatever it is.
void describeAssertion(const RecordedOperation& operation, OpSpec& spec) {
  noteFunction(operation, spec);
  spec.callsUser = true;
  spec.op = makeCallable({.seesFrames = true});
  spec.wholeRun = WholeRun::CallOnRows;
}

}  // namespace

const OperatorRow& callableRow() {
  static const OperatorRow row{
      "callable",
      readCallable,
      {{.name = "kalvex.bigdata.internal.lazyeval.AdaptorAssertionOperation",
        .inputs = {"Options", "FunctionHandle", "NumInputs", "NumOutputs"},
        .describe = describeAssertion}}};
  return row;
}

}  // namespace kv::runtime
