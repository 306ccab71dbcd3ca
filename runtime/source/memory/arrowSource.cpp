// What Arrow's C interface delivers. Its arrays are borrowed from the producer, which may be
// another copy of Arrow or a library in another language: nothing of them is changed, and their
// buffers are released when the last column that uses them is gone. What our columns have in
// another layout, such as logicals in bits, is converted a chunk at a time.

#include <arrow/array/array_base.h>
#include <arrow/c/bridge.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>
#include <arrow/util/byte_size.h>
#include <fmt/core.h>

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "column/MemoryLedger.h"
#include "column/allocate.h"
#include "column/borrowed.h"
#include "column/concatenate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/memory.h"
#include "source/arrowColumn.h"
#include "source/distinctNames.h"
#include "source/memory/ArrayDatastore.h"
#include "source/memory/cutOf.h"

namespace kv::runtime {

namespace {

[[noreturn]] void refuseArrow(std::string reason) {
  errors::raiseStep("KALVEX:datastore:BadArrow", {std::move(reason)});
}

template <class T>
T delivered(arrow::Result<T> result) {
  throwIfOutOfMemory(result.status());
  if (!result.ok()) {
    refuseArrow(result.status().message());
  }
  return *std::move(result);
}

using Charge = std::shared_ptr<MemoryCharge>;

/// A column that arrived in several arrays.
class ArrowColumn final : public ArrayColumn {
 public:
  explicit ArrowColumn(const arrow::DataType& type, Charge charge = nullptr)
      : charge_(std::move(charge)),
        type_(elementTypeOf(type)),
        foreignType_(foreignTypeName(type)) {}

  /// Errors: "KALVEX:datastore:BadArrow" for an array that contradicts itself, or holds bytes that
  /// aren't text, or times that don't fit.
  void add(std::shared_ptr<arrow::Array> array) {
    if (type_ != ElementType::Unknown) {
      check(*array);
    }
    ends_.push_back((ends_.empty() ? 0 : ends_.back()) + array->length());
    isNullable_ = isNullable_ || (isWhole(type_) && array->null_count() > 0);
    arrays_.push_back(std::move(array));
  }

  ElementType type() const override { return type_; }
  bool isNullable() const override { return isNullable_; }
  std::string_view foreignType() const override { return foreignType_; }

  Column elements(std::int64_t first, std::int64_t count) const override {
    std::vector<Column> parts;
    auto at = static_cast<std::size_t>(std::ranges::upper_bound(ends_, first) - ends_.begin());
    for (const std::int64_t end = first + count; first < end; ++at) {
      const std::int64_t begin = at == 0 ? 0 : ends_[at - 1];
      const std::int64_t rows = std::min(end, ends_[at]) - first;
      if (rows > 0) {
        parts.push_back(columnOf(*arrays_[at]->Slice(first - begin, rows)));
      }
      first += rows;
    }
    const Column column = parts.empty()      ? emptyColumn(type_)
                          : parts.size() > 1 ? concatenate(parts)
                                             : parts.front();
    return isNullable_ ? column.asNullable() : column;
  }

 private:
  void check(const arrow::Array& array) const {
    const arrow::Status status = array.Validate();
    if (!status.ok()) {
      refuseArrow(status.message());
    }
    if (type_ == ElementType::String) {
      if (const auto row = firstNotText(array)) {
        refuseArrow(fmt::format("row {} of an array of texts isn't UTF-8", *row + 1));
      }
    }
    if (const auto row = firstBeyondTimes(array)) {
      refuseArrow(fmt::format("row {} of an array of {} doesn't fit 64-bit microseconds", *row + 1,
                              array.type()->ToString()));
    }
  }

  Column columnOf(const arrow::Array& array) const {
    return asBorrowed(toColumn(type_, array, currentPool()));
  }

  Charge charge_;  ///< for the arrays of all columns
  ElementType type_;
  std::string foreignType_;
  bool isNullable_ = false;
  std::vector<std::shared_ptr<arrow::Array>> arrays_;
  std::vector<std::int64_t> ends_;  ///< of the arrays
};

using ArrowColumns = std::vector<std::shared_ptr<ArrowColumn>>;

std::int64_t bytesOf(const ArrowColumns& columns) {
  std::int64_t bytes = 0;
  for (const auto& column : columns) {
    bytes += column->type() == ElementType::String
                 ? kTextBytes
                 : static_cast<std::int64_t>(elementSize(column->type()));
  }
  return bytes;
}

std::shared_ptr<const Datastore> tableOf(const arrow::Schema& schema, ArrowColumns columns,
                                         std::int64_t rows, const CutRequest& request) {
  PositionCut cut = cutOf(rows, bytesOf(columns), request);
  return std::make_shared<ArrayDatastore>(ArrayTable{fmt::format("an Arrow table of {} rows", rows),
                                                     std::move(cut),
                                                     distinctNames(schema.field_names()),
                                                     {},
                                                     {columns.begin(), columns.end()}});
}

ArrowColumns columnsOf(const arrow::Schema& schema, const Charge& charge = nullptr) {
  ArrowColumns columns;
  for (const auto& field : schema.fields()) {
    columns.push_back(std::make_shared<ArrowColumn>(*field->type(), charge));
  }
  return columns;
}

void addTo(MemoryCharge& charge, const arrow::RecordBatch& batch, const MemoryLedger* ledger) {
  try {
    charge.add(delivered(arrow::util::ReferencedBufferSize(batch)));
  } catch (const std::bad_alloc&) {
    const Refusal refusal = ledger->lastRefusal();
    errors::raiseStep("KALVEX:memory:LimitTooSmall",
                      {"an Arrow stream that is collected", shownBytes(refusal.needBytes),
                       shownBytes(refusal.limitBytes)});
  }
}

void add(const arrow::RecordBatch& batch, const ArrowColumns& columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    columns[i]->add(batch.column(static_cast<int>(i)));
  }
}

}  // namespace

std::shared_ptr<const Datastore> openArrow(ArrowArrayStream* stream, const CutRequest& request,
                                           MemoryLedger* ledger) {
  const auto reader = delivered(arrow::ImportRecordBatchReader(stream));
  const auto charge = std::make_shared<MemoryCharge>(ledger);
  ArrowColumns columns = columnsOf(*reader->schema(), charge);
  std::int64_t rows = 0;
  while (const auto batch = delivered(reader->Next())) {
    addTo(*charge, *batch, ledger);
    add(*batch, columns);
    rows += batch->num_rows();
  }
  return tableOf(*reader->schema(), std::move(columns), rows, request);
}

std::shared_ptr<const Datastore> openArrow(ArrowSchema* schema, ArrowArray* array,
                                           const CutRequest& request) {
  const auto type = delivered(arrow::ImportType(schema));
  if (type->id() == arrow::Type::STRUCT) {
    const auto batch = delivered(arrow::ImportRecordBatch(array, arrow::schema(type->fields())));
    ArrowColumns columns = columnsOf(*batch->schema());
    add(*batch, columns);
    return tableOf(*batch->schema(), std::move(columns), batch->num_rows(), request);
  }
  const auto values = delivered(arrow::ImportArray(array, type));
  auto column = std::make_shared<ArrowColumn>(*type);
  if (column->type() == ElementType::Unknown) {
    refuseArrow(fmt::format("arrays of type {} can't be read", type->ToString()));
  }
  column->add(values);
  PositionCut cut = cutOf(values->length(), bytesOf({column}), request);
  return std::make_shared<ArrayDatastore>(
      ArrayTable{fmt::format("an Arrow array of {} rows", values->length()),
                 std::move(cut),
                 {},
                 {},
                 {std::move(column)}});
}

}  // namespace kv::runtime
