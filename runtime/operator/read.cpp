#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

#include "operator/operators.h"
#include "source/registry/openSource.h"

namespace kv::runtime {

namespace {

class Read final : public StatelessOperator {
 public:
  explicit Read(std::shared_ptr<const Datastore> source) : source_(std::move(source)) {}

  std::string_view kind() const override { return "read"; }
  RowEffect rowEffect() const override { return RowEffect::Create; }
  std::shared_ptr<const Datastore> source() const override { return source_; }

  std::string planNote(const ColumnNeeds& asked) const override {
    const std::vector<std::string> columns = asked.columnsOf(source_->schema());
    return fmt::format("{} of {} columns: {}", columns.size(), source_->schema().size(),
                       fmt::join(columns, ", "));
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override { return {inputs.source()}; }

  void write(ByteWriter& bytes) const override { bytes.text(source_->describe()); }

 private:
  std::shared_ptr<const Datastore> source_;
};

}  // namespace

OperatorPtr makeRead(std::shared_ptr<const Datastore> source) {
  return std::make_shared<Read>(std::move(source));
}

OperatorPtr readRead(ByteReader& bytes) { return makeRead(openSource(bytes.text())); }

}  // namespace kv::runtime
