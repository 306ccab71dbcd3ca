// What a value in a file may be: which forms its class has, and how many bytes its dimensions
// require. Products are checked for overflow before they are computed, with the dimensions in any
// order, since some may be zero.

#include "save/SavedValue.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "save/Container.h"

namespace kv::host {

namespace {

using namespace format;

/// Bytes that an element of a container, or a text, counts as, whatever it holds.
constexpr std::size_t kLargestElement = 64;
/// More bytes fit neither in memory nor in a signed size.
constexpr std::size_t kMaxBytes = std::numeric_limits<std::ptrdiff_t>::max();

template <class Number>
Number numberAt(std::string_view bytes, std::size_t offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof(number));
  return number;
}

/// Refuses one value.
class ValueCheck {
 public:
  ValueCheck(std::size_t index, const SavedValue& value) : index_(index), value_(value) {}

  void require(bool holds, const char* reason) const {
    if (!holds) {
      refuseFile(kSectionTags[static_cast<std::size_t>(Section::Values)],
                 index_ * sizeof(ValueEntry), reason);
    }
  }
  /// The first `count` items of that size are there. Result: their bytes.
  std::size_t requireItems(std::size_t count, std::size_t itemBytes) const {
    require(itemBytes == 0 || count <= value_.contents.size() / itemBytes,
            "the value has more elements than the data");
    return count * itemBytes;
  }

 private:
  std::size_t index_;
  const SavedValue& value_;
};

bool isInlineClass(kxClassID id) { return id == kxFUNCTION_CLASS || kxGetElementSize(id) != 0; }

bool isKnownClass(std::uint8_t code) {
  return (code >= kxCELL_CLASS && code <= kxCHAR_CLASS) ||
         (code >= kxDOUBLE_CLASS && code <= kxOBJECT_CLASS);
}

void checkForm(const SavedValue& value, const ValueCheck& check) {
  const kxClassID id = value.classId();
  const bool isText = id == kxCHAR_CLASS || id == kxSTRING_CLASS;
  check.require(value.form() != ValueForm::Inline || isInlineClass(id),
                "a value of this class doesn't fit in its entry");
  check.require(value.form() != ValueForm::Narrow || isText, "only texts have narrow characters");
  check.require(id != kxFUNCTION_CLASS || value.form() == ValueForm::Inline,
                "a function handle is a name");
  check.require(
      value.entry.flags == 0 || (id == kxFUNCTION_CLASS && value.entry.flags == kPlaceholder),
      "the value has a flag that means nothing");
}

/// Neither the product of the dimensions, in the order in which an array is made, nor that of the
/// columns overflows, whatever zeros there are among them.
void checkElementCount(const SavedValue& value, const ValueCheck& check) {
  const std::size_t plain = kxGetElementSize(value.classId());  // 0 for containers
  const std::size_t bytes = plain == 0 ? kLargestElement : std::max<std::size_t>(plain, 8);
  std::size_t limit = kMaxBytes / bytes;
  for (std::size_t i = 1; i < value.dimensions.size(); ++i) {
    check.require(value.dimensions[i] <= limit, "the value has too many elements");
    limit = value.dimensions[i] == 0 ? limit : limit / value.dimensions[i];
  }
  std::size_t product = bytes;
  for (const std::size_t extent : value.dimensions) {
    check.require(!__builtin_mul_overflow(product, extent, &product) && product <= kMaxBytes,
                  "the value has too many elements");
  }
}

std::size_t checkTexts(const SavedValue& value, const ValueCheck& check) {
  const std::size_t lengths = check.requireItems(value.elements, sizeof(TextLength));
  const std::size_t unit = value.form() == ValueForm::Narrow ? 1 : sizeof(char16_t);
  std::size_t characters = 0;
  for (std::size_t i = 0; i < value.elements; ++i) {
    const std::size_t length = value.number(i);
    characters += length > 0 ? length - 1 : 0;
  }
  check.require(characters <= (value.contents.size() - lengths) / unit,
                "the texts are longer than the data");
  return lengths + characters * unit;
}

std::size_t checkLogicals(const SavedValue& value, const ValueCheck& check) {
  const std::size_t bytes = check.requireItems(value.elements, 1);
  check.require(std::ranges::all_of(value.contents.substr(0, bytes),
                                    [](char byte) { return byte == 0 || byte == 1; }),
                "a logical is neither 0 nor 1");
  return bytes;
}

std::size_t checkNames(const SavedValue& value, std::size_t names, const ValueCheck& check) {
  if (value.classId() == kxSTRUCT_CLASS) {
    check.requireItems(1, sizeof(std::uint32_t));
    const std::size_t fields = value.number(0);
    check.requireItems(1 + fields, sizeof(std::uint32_t));
    std::vector<std::uint32_t> all;
    for (std::size_t i = 0; i < fields; ++i) {
      all.push_back(value.number(1 + i));
      check.require(all.back() < names, "the structure has a field without a name");
    }
    check.require(!hasTwice(std::move(all)), "the structure has a field twice");
    check.require(fields == 0 || value.elements <= kMaxBytes / 8 / fields,
                  "the structure has too many elements");
  } else if (value.classId() == kxOBJECT_CLASS) {
    check.requireItems(1, sizeof(std::uint32_t));
    check.require(value.number(0) < names, "the object array has no class");
  }
  const ReferenceRange range = referencesOf(value);
  const std::size_t bytes = check.requireItems(range.offset + range.count * sizeof(ElementCode), 1);
  for (std::size_t i = 0; i < range.count; ++i) {
    const ElementCode code = value.elementCode(range.offset + i * sizeof(ElementCode));
    check.require(code <= std::numeric_limits<std::uint32_t>::max(),
                  "an element is neither a value nor an object");
  }
  return bytes;
}

/// Bytes of the contents, all of which are there.
std::size_t checkContents(const SavedValue& value, std::size_t names, const ValueCheck& check) {
  switch (value.classId()) {
    case kxCELL_CLASS:
    case kxSTRUCT_CLASS:
    case kxOBJECT_CLASS:
      return checkNames(value, names, check);
    case kxSTRING_CLASS:
      return checkTexts(value, check);
    case kxLOGICAL_CLASS:
      return checkLogicals(value, check);
    default:
      return check.requireItems(value.elements, value.form() == ValueForm::Narrow
                                                    ? 1
                                                    : kxGetElementSize(value.classId()));
  }
}

void checkInline(const SavedValue& value, std::size_t names, const ValueCheck& check) {
  check.require(value.entry.dimensions == 0, "a single element has no dimensions");
  check.require(value.classId() != kxFUNCTION_CLASS || value.entry.payload < names,
                "a function handle has no name");
  check.require(value.classId() != kxLOGICAL_CLASS || value.entry.payload <= 1,
                "a logical is neither 0 nor 1");
}

}  // namespace

std::uint32_t SavedValue::number(std::size_t index) const {
  return numberAt<std::uint32_t>(contents, index * sizeof(std::uint32_t));
}

ElementCode SavedValue::elementCode(std::size_t offset) const {
  return numberAt<ElementCode>(contents, offset);
}

ReferenceRange referencesOf(const SavedValue& value) {
  constexpr std::size_t kNumber = sizeof(std::uint32_t);
  switch (value.classId()) {
    case kxCELL_CLASS:
      return {0, value.elements};
    case kxSTRUCT_CLASS:
      return {kNumber * (1 + std::size_t{value.number(0)}), value.elements * value.number(0)};
    case kxOBJECT_CLASS:
      return {kNumber, value.elements};
    default:
      return {};
  }
}

std::size_t checkValue(const SavedValue& value, std::size_t index, std::size_t names) {
  const ValueCheck check(index, value);
  check.require(isKnownClass(value.entry.classCode) && value.entry.form < kValueForms,
                "the value is of no class");
  checkForm(value, check);
  if (value.form() == ValueForm::Inline) {
    checkInline(value, names, check);
    return 0;
  }
  const std::size_t count = value.entry.dimensions;
  check.require(count >= 2 && count <= kMaxDimensions && value.dimensions.size() == count,
                "the value's dimensions aren't in the file");
  check.require(count == 2 || value.classId() != kxOBJECT_CLASS,
                "an object array has more than two dimensions");
  checkElementCount(value, check);
  return count * 8 + checkContents(value, names, check);
}

bool hasTwice(std::vector<std::uint32_t> names) {
  std::ranges::sort(names);
  return std::ranges::adjacent_find(names) != names.end();
}

}  // namespace kv::host
