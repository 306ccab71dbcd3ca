#include <fmt/format.h>
#include <fmt/ranges.h>
#include <algorithm>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class Variable final : public StatelessOperator {
 public:
  Variable(std::vector<std::string> names, bool isContent)
      : StatelessOperator({.name = "variable"}),
        taken_{std::move(names), isContent},
        names_(std::make_shared<const std::vector<std::string>>(taken_.names)) {}

  const TakenColumns* takenColumns() const override { return &taken_; }

  ColumnNeeds needsOf(std::size_t /*input*/, const ColumnNeeds& /*asked*/) const override {
    return {false, {taken_.names.begin(), taken_.names.end()}};
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override {
    const Chunk& table = inputs.chunk(0);
    if (table.names == nullptr) {
      errors::raiseStep("KALVEX:array:NeedsTable", {std::string(inputs.label())});
    }
    Chunk taken{table.partition, table.ordinals, taken_.isContent ? nullptr : names_, {}};
    for (const std::string& name : taken_.names) {
      const auto found = std::ranges::find(*table.names, name);
      if (found == table.names->end()) {
        errors::raiseStep("KALVEX:array:UnknownColumn",
                          {errors::shownText(name), errors::shownNames(*table.names)});
      }
      taken.columns.push_back(
          table.columns[static_cast<std::size_t>(found - table.names->begin())]);
    }
    return {std::move(taken)};
  }

  void write(ByteWriter& bytes) const override {
    bytes.texts(taken_.names);
    bytes.flag(taken_.isContent);
  }

 private:
  TakenColumns taken_;
  std::shared_ptr<const std::vector<std::string>>
      names_;  ///< of a table's columns, shared by chunks
};

}  // namespace

OperatorPtr makeVariable(std::vector<std::string> names, bool isContent) {
  return std::make_shared<Variable>(std::move(names), isContent);
}

namespace {

OperatorPtr readVariable(ByteReader& bytes) {
  std::vector<std::string> names = bytes.texts();
  const bool isContent = bytes.flag();
  if (isContent && names.size() != 1) {
    bytes.refuse();
  }
  return makeVariable(std::move(names), isContent);
}

void checkVariable(const RecordedOperation& inputs) {
  const RecordedValue rows = inputs.value("Rows");
  if (rows.className != "char" || rows.text != ":") {
    errors::raiseStep("KALVEX:array:RowSubscript", {rows.className});
  }
  const std::size_t names = inputs.texts("Variables").size();
  if (inputs.flag("Content") && names != 1) {
    errors::raiseStep("KALVEX:array:OneVariable", {fmt::format("{}", names)});
  }
}

void describeVariable(const RecordedOperation& operation, OpSpec& spec) {
  const std::vector<std::string> names = operation.texts("Variables");
  spec.op = makeVariable(names, operation.flag("Content"));
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = fmt::format("column {}", fmt::join(names, ", "));
}

}  // namespace

const OperatorRow& variableRow() {
  static const OperatorRow row{
      "variable",
      readVariable,
      {{.name = "kalvex.bigdata.internal.lazyeval.SubsrefTabularVarOperation",
        .inputs = {"NumInputs", "NumOutputs", "Content", "Rows", "Variables"},
        .arity = kOneToOne,
        .describe = describeVariable,
        .check = checkVariable,
        .supportsPreview = true,
        .shownProperty = "Variables"}}};
  return row;
}

}  // namespace kv::runtime
