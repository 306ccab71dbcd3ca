// Arrow's converters are fast but report neither which field failed nor why. So a block is
// converted as a whole, and only if that fails, row by row, to find the field. Values that Arrow
// would accept but this format doesn't, such as whole numbers beyond 2^53 in a double column, are
// found by a second pass over the text.

#include "source/csv/CsvColumn.h"

#include <arrow/array/array_base.h>
#include <arrow/array/data.h>
#include <arrow/buffer.h>
#include <arrow/csv/converter.h>
#include <arrow/csv/options.h>
#include <arrow/csv/parser.h>
#include <arrow/type.h>
#include <arrow/util/bit_util.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

using Markers = std::vector<std::string>;

/// The fields that are missing values in a column.
Markers markersOf(ElementType type, const std::optional<Markers>& missing) {
  Markers markers{""};
  if (missing) {
    markers.insert(markers.end(), missing->begin(), missing->end());
  } else if (type != ElementType::String) {
    markers.insert(markers.end(), {"NA", "NaN", "null"});
  }
  if (isTime(type)) {
    markers.emplace_back("NaT");  // a value of the type, as NaN is one of double
  }
  return markers;
}

std::shared_ptr<const arrow::csv::ConvertOptions> optionsFor(
    ElementType type, const std::optional<Markers>& missing) {
  auto options = std::make_shared<arrow::csv::ConvertOptions>();
  options->check_utf8 = false;  // CsvBlocks has checked all bytes
  options->strings_can_be_null = true;
  options->null_values = markersOf(type, missing);
  options->true_values = {"1", "true", "True", "TRUE"};
  options->false_values = {"0", "false", "False", "FALSE"};
  return options;
}

std::shared_ptr<arrow::DataType> convertedType(ElementType type) {
  return type == ElementType::Logical ? arrow::boolean() : arrowTypeOf(type);
}

/// Writes NaN where the validity bitmap marks a missing value.
template <class T>
void fillMissing(const arrow::ArrayData& data) {
  const std::uint8_t* valid = data.buffers[0]->data();
  auto* values = data.buffers[1]->mutable_data_as<T>();
  for (std::int64_t row = 0; row < data.length; ++row) {
    if (!arrow::bit_util::GetBit(valid, static_cast<std::uint64_t>(row))) {
      values[row] = std::numeric_limits<T>::quiet_NaN();
    }
  }
}

/// The floating column over the converter's own buffer, which nothing else refers to yet.
Column floatingColumn(ElementType type, const arrow::ArrayData& data) {
  if (data.GetNullCount() > 0) {
    type == ElementType::Double ? fillMissing<double>(data) : fillMissing<float>(data);
  }
  return Column(type, data.length, data.buffers[1]);
}

/// Arrow's booleans are bits; ours are bytes.
Column logicalColumn(const arrow::ArrayData& data) {
  const std::shared_ptr<arrow::Buffer> bytes = allocateBuffer(data.length);
  const std::uint8_t* bits = data.buffers[1]->data();
  for (std::int64_t row = 0; row < data.length; ++row) {
    bytes->mutable_data()[row] = arrow::bit_util::GetBit(bits, static_cast<std::uint64_t>(row));
  }
  return Column(ElementType::Logical, data.length, bytes);
}

Column columnOf(ElementType type, const std::shared_ptr<arrow::ArrayData>& data) {
  switch (type) {
    case ElementType::String:
      return Column(type, data);
    case ElementType::Double:
    case ElementType::Single:
      return floatingColumn(type, *data);
    case ElementType::Logical:
      return logicalColumn(*data);
    default:
      return Column(type, data->length, data->buffers[1]);
  }
}

bool hasMissingValue(ElementType type) {
  return type == ElementType::String || type == ElementType::Double || type == ElementType::Single;
}

bool mayHoldUnsafeWhole(std::span<const double> values) {
  bool found = false;
  for (const double value : values) {
    found |= std::abs(value) >= kMaxExactWhole;
  }
  return found;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

/// True for the text of a whole number beyond 2^53: an optional sign, and digits.
bool isUnsafeWhole(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('-') || text.starts_with('+')) {
    text.remove_prefix(1);
  }
  if (text.find_first_not_of("0123456789") != std::string_view::npos) {
    return false;
  }
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  static const std::string kLast = std::to_string(static_cast<std::int64_t>(kMaxExactWhole));
  return text.size() > kLast.size() || (text.size() == kLast.size() && text > kLast);
}

/// `options`: live as long as the converter.
std::shared_ptr<arrow::csv::Converter> makeConverter(ElementType type,
                                                     const arrow::csv::ConvertOptions& options) {
  if (isTime(type)) {
    return nullptr;
  }
  auto made = arrow::csv::Converter::Make(convertedType(type), options, currentPool());
  throwIfOutOfMemory(made.status());
  return *std::move(made);
}

std::string_view viewOf(const std::uint8_t* text, std::uint32_t size) {
  return {reinterpret_cast<const char*>(text), size};
}

}  // namespace

CsvColumn::CsvColumn(std::int32_t index, ElementType type, std::optional<Markers> missing)
    : index_(index),
      type_(type),
      missing_(std::move(missing)),
      options_(optionsFor(type, missing_)),
      converter_(makeConverter(type, *options_)) {}

CsvColumn::CsvColumn(std::int32_t index, const ColumnInfo& info, const CsvFormat& format)
    : CsvColumn(index, info.type, format.missing) {
  const auto pattern = format.patterns.find(info.name);
  if (pattern != format.patterns.end()) {
    pattern_.emplace(pattern->second);
  }
}

CsvColumn CsvColumn::as(ElementType type) const {
  CsvColumn other(index_, type, missing_);
  other.pattern_ = pattern_;
  return other;
}

std::optional<ParsedMoment> CsvColumn::momentIn(std::string_view text) const {
  return pattern_ ? pattern_->parse(text) : parseMoment(text);
}

ConvertedColumn CsvColumn::convert(const arrow::csv::BlockParser& block) const {
  if (isTime(type_)) {
    return convertTimes(block);
  }
  const auto array = converter_->Convert(block, index_);
  if (!array.ok()) {
    throwIfOutOfMemory(array.status());
    return {std::nullopt, FieldFault::Unfit};
  }
  const std::shared_ptr<arrow::ArrayData>& data = (*array)->data();
  if (!hasMissingValue(type_) && data->GetNullCount() > 0) {
    return {{}, FieldFault::Missing};
  }
  Column column = columnOf(type_, data);
  if (type_ == ElementType::Double && mayHoldUnsafeWhole(column.values<double>()) &&
      holdsUnsafeWhole(block)) {
    return {std::nullopt, FieldFault::TooLarge};
  }
  return {std::move(column)};
}

ConvertedColumn CsvColumn::convertTimes(const arrow::csv::BlockParser& block) const {
  const std::int64_t rows = block.num_rows();
  auto buffer = allocateBuffer(rows * static_cast<std::int64_t>(sizeof(std::int64_t)));
  auto* next = buffer->mutable_data_as<std::int64_t>();
  bool fits = true;
  bool hasOffsets = false;
  const Markers& missing = options_->null_values;
  const auto add = [&](const std::uint8_t* field, std::uint32_t size, auto...) {
    const std::string_view text = trimmed(viewOf(field, size));
    if (std::ranges::find(missing, text) != missing.end()) {
      *next++ = kNaT;
    } else if (type_ == ElementType::Duration) {
      const auto duration = parseDuration(text);
      fits = fits && duration;
      *next++ = duration.value_or(kNaT);
    } else {
      const auto moment = momentIn(text);
      fits = fits && moment;
      hasOffsets = hasOffsets || (moment && moment->hasOffset);
      *next++ = moment ? moment->microseconds : kNaT;
    }
    return fits ? arrow::Status::OK() : arrow::Status::Invalid("not a time");
  };
  if (!block.VisitColumn(index_, add).ok()) {
    return {std::nullopt, FieldFault::Unfit};
  }
  return {Column(type_, rows, std::move(buffer)), FieldFault::None, hasOffsets};
}

bool CsvColumn::holdsUnsafeWhole(const arrow::csv::BlockParser& block) const {
  bool found = false;
  const auto look = [&found](const std::uint8_t* text, std::uint32_t size, auto...) {
    found = found || isUnsafeWhole(viewOf(text, size));
    return arrow::Status::OK();
  };
  return block.VisitColumn(index_, look).ok() && found;
}

std::string CsvColumn::lastText(const arrow::csv::BlockParser& block) const {
  std::string last;
  const auto keep = [&last](const std::uint8_t* text, std::uint32_t size, auto...) {
    last = viewOf(text, size);
    return arrow::Status::OK();
  };
  return block.VisitColumn(index_, keep).ok() ? last : std::string();
}

}  // namespace kv::runtime
