// Values of any type between the public interface and the host: `Elements` own or borrow plain
// memory, so that a front end needs neither Arrow nor the host to make or read them.

#include "kv/elements.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "elementValues.h"
#include "evaluation.h"
#include "foundation/i18n.h"
#include "hostValues.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/elementClasses.h"
#include "kv/runtime/timeValues.h"
#include "kx/string.h"

namespace kv {

namespace {

using runtime::ElementType;

TextElements textElements(const kxArray* texts) {
  const std::size_t rows = kxGetNumberOfElements(texts);
  TextElements elements;
  elements.offsets.reserve(rows + 1);
  elements.offsets.push_back(0);
  elements.validity.resize((rows + 7) / 8);
  for (std::size_t row = 0; row < rows; ++row) {
    if (const auto text = Torvane::String::getString(texts, row)) {
      elements.bytes += fl::i18n::to_string(*text);
      elements.validity[row / 8] |= static_cast<std::uint8_t>(1U << (row % 8));
    }
    elements.offsets.push_back(static_cast<std::int64_t>(elements.bytes.size()));
  }
  return elements;
}

NumberElements numberElements(host::Value value, std::string_view type) {
  const std::shared_ptr<kxArray> owner(value.release(),
                                       [](kxArray* array) { (void)matrix::from_kalvex(array); });
  return {type, kxGetData(owner.get()), owner};
}

host::Value valueOf(const NumberElements& numbers, std::span<const std::size_t> dimensions) {
  const auto type = runtime::elementTypeNamed(numbers.type);
  if (type == ElementType::DateTime || type == ElementType::Duration) {
    return runtime::makeTimes(*type, matrix::from_kalvex(kxCreateBorrowedArray(
                                         dimensions, kxINT64_CLASS, numbers.data, numbers.owner)));
  }
  assert(type);
  return matrix::from_kalvex(
      kxCreateBorrowedArray(dimensions, runtime::classOf(*type), numbers.data, numbers.owner));
}

host::Value valueOf(const TextElements& texts, std::span<const std::size_t>) {
  const std::size_t rows = texts.offsets.size() - 1;
  host::Value made = Torvane::String::createStringArray(rows, 1);
  for (std::size_t row = 0; row < rows; ++row) {
    if ((unsigned{texts.validity[row / 8]} >> (row % 8) & 1U) != 0) {
      const auto first = static_cast<std::size_t>(texts.offsets[row]);
      const auto last = static_cast<std::size_t>(texts.offsets[row + 1]);
      Torvane::String::setString(made.get(), row,
                                 fl::i18n::to_ustring(texts.bytes.substr(first, last - first)));
    }
  }
  return made;
}

}  // namespace

Elements toElements(host::Value value, std::string_view type,
                    std::span<const std::int64_t> trailing, bool isScalar) {
  Elements elements{type, isScalar, {kxGetM(runtime::shapedElements(value.get()))}, {}};
  elements.dimensions.insert(elements.dimensions.end(), trailing.begin(), trailing.end());
  if (Torvane::String::isString(value.get())) {
    elements.elements = textElements(value.get());
  } else if (const runtime::TimeArray* times = runtime::timesIn(value.get())) {
    elements.elements = numberElements(matrix::sharedCopy(times->microseconds.get()),
                                       runtime::elementTypeName(times->type));
  } else if (const auto found = runtime::numericTypeOf(kxGetClassID(value.get()))) {
    elements.elements = numberElements(std::move(value), runtime::elementTypeName(*found));
  } else {
    raiseNotAColumn(value.get());
  }
  return elements;
}

host::Value toValue(const Elements& elements) {
  std::vector<std::size_t> dimensions = elements.dimensions;
  dimensions.resize(std::max<std::size_t>(dimensions.size(), 2), 1);
  return std::visit([&](const auto& each) { return valueOf(each, dimensions); }, elements.elements);
}

Array constantRow(Session& session, const Elements& row, Where where) {
  assert(row.dimensions.front() == 1);
  const auto& impl = session.shared();
  return publicCall(*impl, where, [&] {
    const host::Value value = toValue(row);
    return makeArray(impl, host::call("createFromConstantBuiltin", {value.get()}),
                     requireType(row.type),
                     RowTraits{.isScalar = true,
                               .made = uniqueKey(),
                               .trailing = {row.dimensions.begin() + 1, row.dimensions.end()}});
  });
}

bool canPlaceBeside(const Array& array) {
  const auto& rows = array.handle().traits.rows;
  return rows != nullptr && rows->places() != nullptr;
}

Array placeBeside(const Array& array, const Elements& elements, Where where) {
  const auto session = live(array.handle().session);
  return publicCall(*session, where, [&] {
    const auto& rows = array.handle().traits.rows;
    assert(rows != nullptr && rows->places() != nullptr);
    const host::Value value = toValue(elements);
    host::Value made = host::call("createFromConstantBuiltin", {value.get()});
    host::callMany("hSetMetadata", 0, std::vector<const kxArray*>{made.get(), rows->places()});
    return makeArray(
        session, std::move(made), requireType(elements.type),
        RowTraits{.rows = rows,
                  .made = uniqueKey(),
                  .trailing = {elements.dimensions.begin() + 1, elements.dimensions.end()}});
  });
}

GatheredElements gatherElements(Session& session, std::span<const Array> arrays, Where where) {
  if (arrays.empty()) {
    return {};
  }
  requireOwn(session.impl(), arrays);
  return publicCall(session.impl(), where, [&] {
    GatheredElements gathered;
    std::vector<host::Value> outputs = gatherValues(arrays);
    for (std::size_t i = 0; i < arrays.size(); ++i) {
      gathered.values.push_back(toElements(std::move(outputs[i]), arrays[i].type(),
                                           arrays[i].trailing(), arrays[i].isScalar()));
    }
    gathered.facts = lastFacts();
    return gathered;
  });
}

}  // namespace kv
