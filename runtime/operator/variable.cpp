#include <algorithm>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class Variable final : public StatelessOperator {
 public:
  Variable(std::vector<std::string> names, bool isContent)
      : names_(std::make_shared<const std::vector<std::string>>(std::move(names))),
        isContent_(isContent) {}

  std::string_view kind() const override { return "variable"; }
  bool takesColumns() const override { return true; }
  std::optional<std::string> contentColumn() const override {
    return isContent_ ? std::optional(names_->front()) : std::nullopt;
  }

  ColumnNeeds needsOf(std::size_t /*input*/, const ColumnNeeds& /*asked*/) const override {
    return {false, {names_->begin(), names_->end()}};
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override {
    const Chunk& table = inputs.chunk(0);
    if (table.names == nullptr) {
      errors::raiseStep("KALVEX:array:NeedsTable", {std::string(inputs.label())});
    }
    Chunk taken{table.partition, table.ordinals, isContent_ ? nullptr : names_, {}};
    for (const std::string& name : *names_) {
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
    bytes.texts(*names_);
    bytes.flag(isContent_);
  }

 private:
  std::shared_ptr<const std::vector<std::string>> names_;
  bool isContent_;
};

}  // namespace

OperatorPtr makeVariable(std::vector<std::string> names, bool isContent) {
  return std::make_shared<Variable>(std::move(names), isContent);
}

OperatorPtr readVariable(ByteReader& bytes) {
  std::vector<std::string> names = bytes.texts();
  const bool isContent = bytes.flag();
  if (isContent && names.size() != 1) {
    bytes.refuse();
  }
  return makeVariable(std::move(names), isContent);
}

}  // namespace kv::runtime
