#include "save/FileTables.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "fl/i18n.h"
#include "value/classIds.h"

namespace kv::host {
namespace {

using namespace format;

constexpr std::size_t kMaxDimensions = 32;
/// What a value counts an element of a container or a text as, whatever it holds.
constexpr std::size_t kLargestElement = 64;
/// Neither memory nor a signed size holds more bytes.
constexpr std::size_t kMaxBytes = std::numeric_limits<std::ptrdiff_t>::max();

std::string_view tagOf(Section section) { return kSectionTags[static_cast<std::size_t>(section)]; }

template <class Item>
Item itemAt(std::string_view bytes, std::size_t index) {
  Item item;
  std::memcpy(&item, bytes.data() + index * sizeof(Item), sizeof(Item));
  return item;
}

/// Takes numbers and texts off the front of a section, never more than is there.
class SectionReader {
 public:
  SectionReader(Section section, std::string_view bytes) : section_(section), bytes_(bytes) {}

  std::string_view take(std::size_t count) {
    if (count > bytes_.size() - at_) {
      refuse("the section ends before the " + std::to_string(count) + " bytes that belong here");
    }
    const std::string_view taken = bytes_.substr(at_, count);
    at_ += count;
    return taken;
  }
  std::uint32_t number() { return itemAt<std::uint32_t>(take(sizeof(std::uint32_t)), 0); }
  bool atEnd() const { return at_ == bytes_.size(); }

  [[noreturn]] void refuse(const std::string& reason) const {
    refuseFile(tagOf(section_), at_, reason);
  }

 private:
  Section section_;
  std::string_view bytes_;
  std::size_t at_ = 0;
};

/// The number of items in a section of equally long ones.
template <class Item>
std::size_t countItems(Section section, std::string_view bytes) {
  if (bytes.size() % sizeof(Item) != 0 || bytes.size() / sizeof(Item) > Reference::kMaxIndex) {
    refuseFile(tagOf(section), bytes.size() - bytes.size() % sizeof(Item),
               "the section has " + std::to_string(bytes.size()) + " bytes, and its entries " +
                   std::to_string(sizeof(Item)) + " each");
  }
  return bytes.size() / sizeof(Item);
}

bool isUtf8(std::string_view text) {
  return fl::i18n::to_string(fl::i18n::to_ustring(text)) == text;
}

bool hasTwice(std::vector<std::uint32_t> names) {
  std::ranges::sort(names);
  return std::ranges::adjacent_find(names) != names.end();
}

/// Refuses one value.
class ValueCheck {
 public:
  ValueCheck(std::size_t index, const SavedValue& value) : index_(index), value_(value) {}

  void require(bool holds, const char* reason) const {
    if (!holds) {
      refuseFile(tagOf(Section::Values), index_ * sizeof(ValueEntry), reason);
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

bool isInlineClass(kxClassID id) {
  return id == kxFUNCTION_CLASS || classIdFacts(id).elementBytes != 0;
}

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
      value.entry.flags == 0 || (id == kxFUNCTION_CLASS && value.entry.flags == kStandsIn),
      "the value has a flag that means nothing");
}

/// The product of the dimensions, none of whose parts overflows.
std::size_t checkedElements(const SavedValue& value, const ValueCheck& check) {
  const std::size_t plain = classIdFacts(value.classId()).elementBytes;  // 0 for containers
  const std::size_t bytes = plain == 0 ? kLargestElement : std::max<std::size_t>(plain, 8);
  std::size_t limit = kMaxBytes / bytes;
  for (std::size_t i = 1; i < value.dimensions.size(); ++i) {
    check.require(value.dimensions[i] <= limit, "the value has too many elements");
    limit = value.dimensions[i] == 0 ? limit : limit / value.dimensions[i];
  }
  std::size_t columns = 1;
  for (std::size_t i = 1; i < value.dimensions.size(); ++i) {
    columns *= value.dimensions[i];
  }
  check.require(
      value.dimensions[0] <= kMaxBytes / bytes && (columns == 0 || value.dimensions[0] <= limit),
      "the value has too many elements");
  return value.dimensions[0] * columns;
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
                                                    : classIdFacts(value.classId()).elementBytes);
  }
}

}  // namespace

std::uint32_t SavedValue::number(std::size_t index) const {
  return itemAt<std::uint32_t>(contents, index);
}

ElementCode SavedValue::elementCode(std::size_t offset) const {
  return itemAt<ElementCode>(contents.substr(offset), 0);
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

FileTables::FileTables(const SectionViews& sections) : sections_(sections) {
  const auto section = [&](Section which) { return sections_[static_cast<std::size_t>(which)]; };
  readNames(section(Section::Names));
  readShapes(section(Section::Shapes));
  objectCount_ = countItems<ObjectEntry>(Section::Objects, section(Section::Objects));
  valueCount_ = countItems<ValueEntry>(Section::Values, section(Section::Values));
  countItems<std::uint32_t>(Section::References, section(Section::References));
  if (countItems<std::uint32_t>(Section::Root, section(Section::Root)) != 1) {
    refuseFile(tagOf(Section::Root), 0, "there is one root");
  }
  checkObjects();
  checkValues();
  root_ = Reference::fromCode(itemAt<std::uint32_t>(section(Section::Root), 0));
  if (!root_.isNull() && root_.index() >= (root_.isObject() ? objectCount_ : valueCount_)) {
    refuseFile(tagOf(Section::Root), 0, "the root isn't in the file");
  }
}

void FileTables::readNames(std::string_view bytes) {
  SectionReader reader(Section::Names, bytes);
  while (!reader.atEnd()) {
    const std::string_view text = reader.take(reader.number());
    if (!isUtf8(text)) {
      reader.refuse("a name isn't UTF-8");
    }
    names_.push_back(text);
  }
}

void FileTables::readShapes(std::string_view bytes) {
  SectionReader reader(Section::Shapes, bytes);
  while (!reader.atEnd()) {
    SavedShape shape{.className = reader.number(), .properties = {}};
    const std::string_view properties = reader.take(reader.number() * std::size_t{4});
    for (std::size_t i = 0; i < properties.size() / 4; ++i) {
      shape.properties.push_back(itemAt<std::uint32_t>(properties, i));
    }
    const auto isName = [&](std::uint32_t name) { return name < names_.size(); };
    if (!isName(shape.className) || !std::ranges::all_of(shape.properties, isName) ||
        hasTwice(shape.properties)) {
      reader.refuse("a class or its properties have no names of their own");
    }
    shapes_.push_back(std::move(shape));
  }
}

format::ObjectEntry FileTables::object(std::size_t index) const {
  return itemAt<ObjectEntry>(sections_[static_cast<std::size_t>(Section::Objects)], index);
}

format::Reference FileTables::reference(std::uint64_t index) const {
  return Reference::fromCode(itemAt<std::uint32_t>(
      sections_[static_cast<std::size_t>(Section::References)], static_cast<std::size_t>(index)));
}

/// No reference and no record belongs to two objects: what is made of them is bounded by the file
/// then.
void FileTables::checkObjects() const {
  const std::size_t references =
      sections_[static_cast<std::size_t>(Section::References)].size() / sizeof(std::uint32_t);
  std::size_t left = references;
  std::vector<bool> isRecord(valueCount_);
  for (std::size_t i = 0; i < objectCount_; ++i) {
    const ObjectEntry entry = object(i);
    const auto require = [&](bool holds, const char* reason) {
      if (!holds) {
        refuseFile(tagOf(Section::Objects), objectOffset(i), reason);
      }
    };
    require(entry.shape < shapes_.size() && entry.form < kObjectForms, "the object has no shape");
    const std::size_t own = shapes_[entry.shape].properties.size() + (entry.form != 0 ? 1 : 0);
    require(own <= left && entry.firstReference <= references - own,
            "the object's references aren't in the file");
    left -= own;
    for (std::size_t k = 0; k < own; ++k) {
      const Reference at = reference(entry.firstReference + k);
      require(at.isNull() || at.index() < (at.isObject() ? objectCount_ : valueCount_),
              "the object refers to something that isn't in the file");
    }
    if (entry.form == static_cast<std::uint32_t>(ObjectForm::Record)) {
      const Reference record = reference(entry.firstReference);
      require(own == 1 && !record.isNull() && !record.isObject() &&
                  value(record.index()).classId() == kxSTRUCT_CLASS,
              "the object's record isn't a structure");
      require(!isRecord[record.index()], "two objects have the same record");
      isRecord[record.index()] = true;
    }
  }
}

std::size_t FileTables::size() const {
  std::size_t bytes = 0;
  for (const std::string_view section : sections_) {
    bytes += section.size();
  }
  return bytes;
}

SavedValue FileTables::value(std::size_t index) const {
  SavedValue value{
      .entry = itemAt<ValueEntry>(sections_[static_cast<std::size_t>(Section::Values)], index)};
  if (value.form() == ValueForm::Inline) {
    value.dimensions = {1, 1};
    return value;
  }
  const std::string_view data = sections_[static_cast<std::size_t>(Section::Data)];
  const std::string_view from =
      data.substr(std::min<std::uint64_t>(value.entry.payload, data.size()));
  const std::size_t dimensions = std::min<std::size_t>(value.entry.dimensions, from.size() / 8);
  for (std::size_t i = 0; i < dimensions; ++i) {
    value.dimensions.push_back(itemAt<std::uint64_t>(from, i));
    value.elements *= value.dimensions.back();
  }
  value.contents = from.substr(dimensions * 8);
  return value;
}

/// No data belong to two values: memory for values is bounded by the file then.
void FileTables::checkValues() {
  std::size_t left = sections_[static_cast<std::size_t>(Section::Data)].size();
  std::vector<std::uint16_t> depths(valueCount_);
  for (std::size_t i = 0; i < valueCount_; ++i) {
    const SavedValue value = this->value(i);
    const ValueCheck check(i, value);
    check.require(isKnownClass(value.entry.classCode) && value.entry.form < kValueForms,
                  "the value is of no class");
    checkForm(value, check);
    if (value.form() == ValueForm::Inline) {
      check.require(value.entry.dimensions == 0, "a single element has no dimensions");
      check.require(value.classId() != kxFUNCTION_CLASS || value.entry.payload < names_.size(),
                    "a function handle has no name");
      check.require(value.classId() != kxLOGICAL_CLASS || value.entry.payload <= 1,
                    "a logical is neither 0 nor 1");
    } else {
      const std::size_t count = value.entry.dimensions;
      check.require(count >= 2 && count <= kMaxDimensions && value.dimensions.size() == count,
                    "the value's dimensions aren't in the file");
      check.require(count == 2 || value.classId() != kxOBJECT_CLASS,
                    "an object array has more than two dimensions");
      checkedElements(value, check);
      const std::size_t bytes = count * 8 + checkContents(value, names_.size(), check);
      check.require(bytes <= left, "two values have the same data");
      left -= bytes;
    }
    checkValue(i, depths);
  }
}

void FileTables::checkValue(std::size_t index, std::vector<std::uint16_t>& depths) const {
  const SavedValue value = this->value(index);
  std::size_t depth = 0;
  forEachReference(value, [&](Reference reference) {
    checkReference(index, reference);
    if (!reference.isNull() && !reference.isObject()) {
      depth = std::max<std::size_t>(depth, depths[reference.index()]);
    }
    if (value.classId() == kxOBJECT_CLASS && !reference.isNull() && !reference.isObject()) {
      refuseFile(tagOf(Section::Values), index * sizeof(ValueEntry),
                 "an object array holds something that isn't an object");
    }
  });
  if (depth >= kMaxNesting) {
    refuseFile(tagOf(Section::Values), index * sizeof(ValueEntry),
               "values stand in values more than " + std::to_string(kMaxNesting) + " deep");
  }
  depths[index] = static_cast<std::uint16_t>(depth + 1);
}

void FileTables::checkReference(std::size_t index, Reference reference) const {
  bool isEarlier = reference.isNull() || (!reference.isObject() && reference.index() < index);
  if (reference.isObject() && reference.index() < objectCount_) {
    const ObjectEntry entry = object(reference.index());
    isEarlier = entry.form != static_cast<std::uint32_t>(ObjectForm::Record) ||
                this->reference(entry.firstReference).index() < index;
  }
  if (!isEarlier) {
    refuseFile(tagOf(Section::Values), index * sizeof(ValueEntry),
               "the value refers to something that doesn't come before it");
  }
}

}  // namespace kv::host
