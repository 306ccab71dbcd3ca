// The places of a value are saved and pass through the host as a structure, which anyone can write.
// So nothing in it is believed: numbers that would index past an array, or sum up to more than
// fits, are refused here, since the engine doesn't check them again for each row.

#include "values/placesValues.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

constexpr std::array<std::string_view, 9> kFields{"RowCount",  "PartitionRows", "Ordinals",
                                                  "Source",    "SourceRows",    "Origin",
                                                  "IsUntyped", "IsNullable",    "FrameRows"};

Value int64Column(std::span<const std::int64_t> numbers) {
  Value column = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{numbers.size(), 1}, kxINT64_CLASS));
  std::copy(numbers.begin(), numbers.end(),
            static_cast<std::int64_t*>(kxGetMutableData(column.get())));
  return column;
}

/// The numbers of an int64 column; none for anything else.
std::span<const std::int64_t> int64sOf(const kxArray* column) {
  if (kxGetClassID(column) != kxINT64_CLASS || kxGetN(column) != 1) {
    return {};
  }
  return {static_cast<const std::int64_t*>(kxGetData(column)), kxGetNumberOfElements(column)};
}

std::optional<std::string> textIn(const kxArray* metadata, std::string_view field) {
  const kxArray* text = kxGetField(metadata, 0, field);
  const bool isText = text != nullptr && kxIsScalar(text) && Torvane::String::isString(text);
  return isText ? std::optional(host::toText(text)) : std::nullopt;
}

bool isTrue(const kxArray* flag) {
  return kxGetClassID(flag) == kxLOGICAL_CLASS && kxIsScalar(flag) && *kxGetLogicals(flag);
}

/// The elements of a logical array; none of anything else.
std::vector<bool> flagsOf(const kxArray* flags) {
  if (kxGetClassID(flags) != kxLOGICAL_CLASS) {
    return {};
  }
  const auto* first = kxGetLogicals(flags);
  return std::vector<bool>(first, first + kxGetNumberOfElements(flags));
}

Value toFlags(const std::vector<bool>& flags) {
  Value value = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{flags.size(), 1}, kxLOGICAL_CLASS));
  std::ranges::copy(flags, static_cast<bool*>(kxGetMutableData(value.get())));
  return value;
}

}  // namespace

std::optional<RowPlaces> placesOf(const kxArray* metadata, std::size_t rows) {
  if (kxGetClassID(metadata) != kxSTRUCT_CLASS || kxIsEmpty(metadata)) {
    return std::nullopt;
  }
  const auto firstRow = int64sOf(kxGetField(metadata, 0, "PartitionRows"));
  const auto sourceRows = int64sOf(kxGetField(metadata, 0, "SourceRows"));
  std::optional<std::string> source = textIn(metadata, "Source");
  if (!source || sourceRows.empty()) {
    return std::nullopt;
  }
  RowPlaces places{{firstRow.begin(), firstRow.end()},
                   std::nullopt,
                   std::make_shared<const RowCut>(
                       RowCut{*std::move(source), {sourceRows.begin(), sourceRows.end()}}),
                   textIn(metadata, "Origin").value_or("")};
  places.isUntyped = rows == 0 && isTrue(kxGetField(metadata, 0, "IsUntyped"));
  places.isNullable = flagsOf(kxGetField(metadata, 0, "IsNullable"));
  const auto frameRows = int64sOf(kxGetField(metadata, 0, "FrameRows"));
  places.frameRows = frameRows.size() == 1 ? std::max<std::int64_t>(frameRows[0], 0) : 0;
  const kxArray* ordinals = kxGetField(metadata, 0, "Ordinals");
  if (kxGetClassID(ordinals) == kxINT64_CLASS) {
    if (kxGetN(ordinals) != 1) {
      return std::nullopt;
    }
    places.ordinals = toColumn(ordinals);
  }
  return places.fit(static_cast<std::int64_t>(rows)) ? std::optional(std::move(places))
                                                     : std::nullopt;
}

Value toMetadata(const RowPlaces& places) {
  Value metadata = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kFields));
  const auto set = [&](std::string_view field, Value value) {
    kxSetField(metadata.get(), 0, field, value.release());
  };
  set("RowCount", host::makeDouble(static_cast<double>(places.rows())));
  set("PartitionRows", int64Column(places.firstRow));
  set("Ordinals", places.ordinals ? toValue(*places.ordinals) : host::makeEmptyDouble());
  set("Source", host::makeString(places.cut->source));
  set("SourceRows", int64Column(places.cut->partitionRows));
  set("Origin", host::makeString(places.origin));
  set("IsUntyped", host::makeLogical(places.isUntyped));
  set("IsNullable", toFlags(places.isNullable));
  set("FrameRows", int64Column({&places.frameRows, 1}));
  return metadata;
}

}  // namespace kv::runtime
