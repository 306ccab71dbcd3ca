// A row in C order holds an element of each column, so all columns that are requested are taken
// from one read. In Fortran order the elements of a column follow one another, and are read
// directly into its buffer if they need no conversion.
//
// The file is opened for each read: a chunk is some hundred kilobytes, next to which that costs
// little, and an array that isn't read keeps no file open.

#include "source/npy/NpyArray.h"

#include <arrow/buffer.h>
#include <arrow/util/float16.h>
#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "column/allocate.h"
#include "column/arrays.h"
#include "column/concatenate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/memory.h"
#include "kv/runtime/npy.h"
#include "kv/runtime/times.h"
#include "source/FileTable.h"
#include "source/SourceInput.h"
#include "source/memory/ArrayDatastore.h"
#include "source/memory/cutOf.h"

namespace kv::runtime {

namespace {

class NpyColumn final : public ArrayColumn {
 public:
  NpyColumn(std::shared_ptr<const NpyArray> array, std::size_t number)
      : array_(std::move(array)), number_(number) {}

  const std::shared_ptr<const NpyArray>& array() const { return array_; }

  ElementType type() const override { return array_->element().type; }
  Column elements(std::int64_t first, std::int64_t count) const override {
    return array_->read(first, count, {number_}).front();
  }
  const ArrayBlock* block() const override { return array_.get(); }
  std::size_t numberInBlock() const override { return number_; }

  bool isDescribed() const override { return true; }
  void describe(ByteWriter& bytes) const override { write(bytes, false); }
  void describeForSave(ByteWriter& bytes) const override { write(bytes, true); }

 private:
  void write(ByteWriter& bytes, bool isForSave) const {
    bytes.number(static_cast<std::uint8_t>(GeneratorKind::File));
    bytes.number<std::uint64_t>(number_);
    if (number_ == 0) {
      array_->describe(bytes, isForSave);
    }
  }

  std::shared_ptr<const NpyArray> array_;
  std::size_t number_;
};

/// An element of a file, in the order of bytes of this machine.
template <class T>
T loaded(const char* from, bool isSwapped) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, from, sizeof(T));
  if (isSwapped) {
    std::ranges::reverse(bytes);
  }
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return value;
}

/// A time as microseconds, rounded towards the past; `fits` becomes false if it is beyond 64 bits.
std::int64_t microsecondsOf(std::int64_t value, const NpyElement& element, bool& fits) {
  std::int64_t scaled = 0;
  if (value == kNaT) {
    return kNaT;
  }
  if (__builtin_mul_overflow(value, element.timesUnit, &scaled)) {
    fits = false;
  }
  const std::int64_t by = element.perMicrosecond;
  return scaled / by - (scaled % by < 0 ? 1 : 0);
}

/// `count` elements, `stride` bytes apart, as a column.
Column decoded(const NpyElement& element, const char* from, std::int64_t stride, std::int64_t count,
               const SourceFile& file) {
  auto buffer = allocateBuffer(count * static_cast<std::int64_t>(elementSize(element.type)));
  bool fits = true;
  visitNumeric(element.type, [&]<class T>() {
    auto* values = buffer->mutable_data_as<T>();
    for (std::int64_t i = 0; i < count; ++i) {
      const char* at = from + i * stride;
      if constexpr (std::is_same_v<T, float>) {
        values[i] =
            element.isHalf
                ? arrow::util::Float16::FromBits(loaded<std::uint16_t>(at, element.isSwapped))
                      .ToFloat()
                : loaded<float>(at, element.isSwapped);
      } else {
        values[i] = loaded<T>(at, element.isSwapped);
      }
    }
    if constexpr (std::is_same_v<T, std::int64_t>) {
      for (std::int64_t i = 0; i < count && element.timesUnit != element.perMicrosecond; ++i) {
        values[i] = microsecondsOf(values[i], element, fits);
      }
    }
  });
  if (element.type == ElementType::Logical) {
    auto* values = buffer->mutable_data();
    std::transform(values, values + count, values,
                   [](std::uint8_t byte) { return static_cast<std::uint8_t>(byte != 0); });
  }
  if (!fits) {
    errors::raiseStep("KALVEX:datastore:BadNpy",
                      {file.path, "it has a time that doesn't fit 64-bit microseconds"});
  }
  return {element.type, count, std::move(buffer)};
}

std::string shownArray(const NpyHeader& header) {
  const Dimensions trailing(header.shape.begin() + 1, header.shape.end());
  return fmt::format("{} of {}", describeSize(trailing), header.code);
}

}  // namespace

NpyArray::NpyArray(std::string code, Dimensions trailing, std::vector<Part> parts)
    : code_(std::move(code)),
      element_(NpyElement::of(code_)),
      trailing_(std::move(trailing)),
      places_(columnsIn(trailing_)),
      parts_(std::move(parts)) {
  assert(!parts_.empty() && element_.type != ElementType::Unknown);
  const std::vector<std::size_t> order = rowMajorColumns(trailing_);
  for (std::size_t place = 0; place < order.size(); ++place) {
    places_[order[place]] = place;
  }
}

std::shared_ptr<const NpyArray> NpyArray::open(const std::vector<SourceFile>& files) {
  std::vector<Part> parts;
  std::optional<NpyHeader> first;
  std::int64_t rows = 0;
  for (const SourceFile& file : files) {
    const NpyHeader header = NpyHeader::read(SourceInput(file));
    if (!first) {
      first = header;
    }
    const bool isSame =
        header.code == first->code && std::equal(header.shape.begin() + 1, header.shape.end(),
                                                 first->shape.begin() + 1, first->shape.end());
    if (!isSame) {
      errors::raiseStep("KALVEX:datastore:DifferentArrays",
                        {file.path, shownArray(header), files.front().path, shownArray(*first)});
    }
    parts.push_back({file, header.dataStart, rows, header.shape.front(), header.isFortran});
    rows += header.shape.front();
  }
  return std::make_shared<const NpyArray>(
      first->code, Dimensions(first->shape.begin() + 1, first->shape.end()), std::move(parts));
}

void NpyArray::describe(ByteWriter& bytes, bool isForSave) const {
  bytes.text(code_);
  writeDimensions(trailing_, bytes);
  bytes.number<std::uint64_t>(parts_.size());
  for (const Part& part : parts_) {
    SourceFile file = part.file;
    file.isFromSave |= isForSave;
    writeFile(bytes, file);
    bytes.number(part.dataStart);
    bytes.number(part.rows);
    bytes.flag(part.isFortran);
  }
}

std::shared_ptr<const NpyArray> NpyArray::read(ByteReader& bytes) {
  std::string code = bytes.text();
  const NpyElement element = NpyElement::of(code);
  Dimensions trailing = readDimensions(bytes);
  std::vector<Part> parts(bytes.count(4 * sizeof(std::uint64_t)));
  if (element.type == ElementType::Unknown || parts.empty()) {
    bytes.refuse();
  }
  std::int64_t rows = 0;
  const std::int64_t rowBytes = element.bytes * static_cast<std::int64_t>(columnsIn(trailing));
  for (Part& part : parts) {
    part.file = readFile(bytes);
    part.dataStart = bytes.number<std::int64_t>();
    part.firstRow = rows;
    part.rows = bytes.number<std::int64_t>();
    part.isFortran = bytes.flag();
    std::int64_t needed = 0;
    if (part.dataStart < 0 || part.rows < 0 || part.rows > kMaxPositions - rows ||
        __builtin_mul_overflow(part.rows, rowBytes, &needed) ||
        needed > part.file.bytes - part.dataStart) {
      bytes.refuse();
    }
    rows += part.rows;
  }
  return std::make_shared<const NpyArray>(std::move(code), std::move(trailing), std::move(parts));
}

std::vector<std::shared_ptr<const ArrayColumn>> NpyArray::columns() const {
  std::vector<std::shared_ptr<const ArrayColumn>> columns;
  for (std::size_t number = 0; number < places_.size(); ++number) {
    columns.push_back(std::make_shared<NpyColumn>(shared_from_this(), number));
  }
  return columns;
}

std::vector<Column> NpyArray::read(std::int64_t first, std::int64_t count,
                                   const std::vector<std::size_t>& columns) const {
  std::vector<std::vector<Column>> pieces(columns.size());
  for (const Part& part : parts_) {
    const std::int64_t begin = std::max(first, part.firstRow);
    const std::int64_t end = std::min(first + count, part.firstRow + part.rows);
    if (begin < end) {
      std::vector<Column> read = readPart(part, begin - part.firstRow, end - begin, columns);
      for (std::size_t i = 0; i < columns.size(); ++i) {
        pieces[i].push_back(std::move(read[i]));
      }
    }
  }
  std::vector<Column> whole;
  for (std::vector<Column>& each : pieces) {
    whole.push_back(each.empty()      ? emptyColumn(element_.type)
                    : each.size() > 1 ? concatenate(each)
                                      : std::move(each.front()));
  }
  return whole;
}

std::vector<Column> NpyArray::readPart(const Part& part, std::int64_t first, std::int64_t count,
                                       const std::vector<std::size_t>& columns) const {
  const SourceInput input(part.file);
  const auto width = static_cast<std::int64_t>(places_.size());
  const bool isByColumn = part.isFortran || width == 1;
  const auto readBytes = [&](std::int64_t element, std::int64_t elements) {
    auto bytes = allocateBuffer(elements * element_.bytes);
    input.readAt(part.dataStart + element * element_.bytes, bytes->mutable_data_as<char>(),
                 static_cast<std::size_t>(elements * element_.bytes));
    return bytes;
  };
  std::vector<Column> read;
  if (!isByColumn) {
    const auto rows = readBytes(first * width, count * width);
    for (const std::size_t column : columns) {
      const auto at = static_cast<std::int64_t>(places_[column]) * element_.bytes;
      read.push_back(
          decoded(element_, rows->data_as<char>() + at, width * element_.bytes, count, part.file));
    }
    return read;
  }
  for (const std::size_t column : columns) {
    auto bytes = readBytes(static_cast<std::int64_t>(column) * part.rows + first, count);
    read.push_back(element_.isPlain() ? Column(element_.type, count, std::move(bytes))
                                      : decoded(element_, bytes->data_as<char>(), element_.bytes,
                                                count, part.file));
  }
  return read;
}

std::vector<std::string> NpyArray::files() const {
  std::vector<std::string> paths;
  std::ranges::transform(parts_, std::back_inserter(paths),
                         [](const Part& part) { return part.file.absolutePath; });
  return paths;
}

std::string NpyArray::fileOf(std::int64_t position) const {
  const auto after = std::ranges::upper_bound(parts_, position, {}, &Part::firstRow);
  return after == parts_.begin() ? std::string() : std::prev(after)->file.path;
}

std::shared_ptr<const ArrayColumn> readNpyColumn(ByteReader& bytes, const PositionCut& cut,
                                                 const ArrayColumn* previous) {
  const auto number = bytes.number<std::uint64_t>();
  const auto* before = dynamic_cast<const NpyColumn*>(previous);
  if (number > 0 && before == nullptr) {
    bytes.refuse();
  }
  const auto array = number == 0 ? NpyArray::read(bytes) : before->array();
  if (number >= columnsIn(array->trailing()) || array->rows() != cut.rows()) {
    bytes.refuse();
  }
  return std::make_shared<NpyColumn>(array, number);
}

namespace {

std::unique_ptr<Datastore> arraysOf(const std::vector<std::string>& paths, bool isTable) {
  const FileTable files = lookAtFiles(paths, {".npy"});
  const auto array = NpyArray::open(files.files);
  const auto columns = columnsIn(array->trailing());
  const auto rowBytes = static_cast<std::int64_t>(elementSize(array->element().type) * columns);
  ArrayTable table{files.name, cutOf(array->rows(), rowBytes, {})};
  table.columns = array->columns();
  if (isTable) {
    for (std::size_t number = 1; number <= columns; ++number) {
      table.names.push_back(fmt::format("column_{}", number));
    }
  } else {
    table.trailing = withoutTrailingOnes(array->trailing());
  }
  return std::make_unique<ArrayDatastore>(std::move(table));
}

}  // namespace

std::unique_ptr<Datastore> openNpy(const std::vector<std::string>& paths) {
  return arraysOf(paths, false);
}

std::unique_ptr<Datastore> openNpyTable(const std::vector<std::string>& paths,
                                        const std::vector<TypeOverride>& types) {
  auto source = arraysOf(paths, true);
  requireTypes(source->displayName(), source->schema(), types);
  return source;
}

}  // namespace kv::runtime
