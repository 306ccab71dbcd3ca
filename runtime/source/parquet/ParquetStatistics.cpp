// The bounds go through the same conversion as values, and are compared with the value by the same
// function as rows are. Both keep the order, so a bound that doesn't fulfil the condition speaks
// for all rows.

#include "source/parquet/ParquetStatistics.h"

#include <arrow/array/array_base.h>
#include <arrow/array/util.h>
#include <arrow/scalar.h>
#include <parquet/arrow/reader.h>
#include <parquet/exception.h>
#include <parquet/metadata.h>
#include <parquet/statistics.h>

#include <cassert>
#include <cmath>
#include <memory>
#include <optional>
#include <string_view>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"
#include "source/FileTable.h"
#include "source/arrowColumn.h"

namespace kv::runtime {

namespace {

struct Bounds {
  Column least;
  Column most;
};

/// True for one value of the type that isn't NaN.
bool isBound(const Column& value) {
  if (!isFloating(value.type())) {
    return !value.hasNulls();
  }
  return visitNumeric(value.type(), [&]<class T>() {
    const T bound = value.values<T>()[0];
    return bound == bound;
  });
}

std::optional<Column> boundOf(const std::shared_ptr<arrow::Scalar>& scalar, ElementType type,
                              arrow::MemoryPool* pool) {
  if (scalar == nullptr || !scalar->is_valid || elementTypeOf(*scalar->type) != type) {
    return std::nullopt;
  }
  const auto array = arrow::MakeArrayFromScalar(*scalar, 1, pool);
  throwIfOutOfMemory(array.status());
  if (!array.ok() || firstBeyondTimes(**array)) {
    return std::nullopt;
  }
  Column bound = toColumn(type, **array, pool);
  return isBound(bound) ? std::optional(std::move(bound)) : std::nullopt;
}

bool areExact(const parquet::Statistics& statistics, ElementType type) {
  const bool isCut = type == ElementType::String;  // what a writer may cut, and often does
  return statistics.is_min_value_exact().value_or(!isCut) &&
         statistics.is_max_value_exact().value_or(!isCut);
}

std::optional<Bounds> boundsOf(const ParquetFooter& footer, int group, std::size_t column,
                               arrow::MemoryPool* pool) {
  const ElementType type = footer.schema[column].type;
  std::shared_ptr<arrow::Scalar> least;
  std::shared_ptr<arrow::Scalar> most;
  try {
    const auto statistics =
        footer.metadata->RowGroup(group)->ColumnChunk(footer.leaves[column])->statistics();
    if (statistics == nullptr || !statistics->HasMinMax() || !areExact(*statistics, type)) {
      return std::nullopt;
    }
    const arrow::Status status = parquet::arrow::StatisticsAsScalars(*statistics, &least, &most);
    throwIfOutOfMemory(status);
    if (!status.ok()) {
      return std::nullopt;
    }
  } catch (const parquet::ParquetException&) {
    return std::nullopt;
  }
  std::optional<Column> first = boundOf(least, type, pool);
  std::optional<Column> last = boundOf(most, type, pool);
  return first && last ? std::optional(Bounds{*std::move(first), *std::move(last)}) : std::nullopt;
}

bool isTrue(std::string_view comparison, const Column& bound, const Column& value) {
  const ColumnOperand inputs[] = {{bound, true}, {value, true}};
  return evaluate(*findElementFunction(comparison), inputs, 1).values<std::uint8_t>()[0] != 0;
}

}  // namespace

bool holdsNoRow(const ParquetFooter& footer, int group, const RowCondition& condition,
                arrow::MemoryPool* pool) {
  const std::size_t column = columnIndex(footer.schema, condition.column);
  assert(footer.schema[column].isReadable());
  const std::optional<Bounds> bounds = boundsOf(footer, group, column, pool);
  if (!bounds) {
    return false;
  }
  const std::string_view name = condition.comparison->name;
  try {
    if (name == "eq") {
      return !isTrue("le", bounds->least, condition.value) ||
             !isTrue("ge", bounds->most, condition.value);
    }
    return !isTrue(name, name.starts_with('l') ? bounds->least : bounds->most, condition.value);
  } catch (const errors::StepError&) {
    return false;  // the step that compares rows raises it
  }
}

}  // namespace kv::runtime
