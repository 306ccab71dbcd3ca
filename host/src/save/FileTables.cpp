// Every number in a file is checked here, once, before anything is made of it: lengths against the
// bytes that are there, references against the tables, nesting and expansion against their limits.
// Two rules keep the memory of a load in proportion to its file: no bytes and no references belong
// to two values or objects, and a value refers to earlier ones only.

#include "save/FileTables.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "foundation/i18n.h"

namespace kv::host {

namespace {

using namespace format;

std::string_view tagOf(Section section) { return kSectionTags[static_cast<std::size_t>(section)]; }

template <class Item>
Item itemAt(std::string_view bytes, std::size_t index) {
  Item item;
  std::memcpy(&item, bytes.data() + index * sizeof(Item), sizeof(Item));
  return item;
}

/// Reads numbers and texts from the beginning of a section, never more than is there.
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

}  // namespace

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

/// No reference and no record belongs to two objects, so the file bounds what is made of them.
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
  // checkValue refuses more than a value can have; don't read them each time.
  const std::size_t dimensions =
      value.entry.dimensions > kMaxDimensions
          ? 0
          : std::min<std::size_t>(value.entry.dimensions, from.size() / 8);
  for (std::size_t i = 0; i < dimensions; ++i) {
    value.dimensions.push_back(itemAt<std::uint64_t>(from, i));
    value.elements *= value.dimensions.back();
  }
  value.contents = from.substr(dimensions * 8);
  return value;
}

/// No data belong to two values, so the file bounds the memory for values.
void FileTables::checkValues() {
  std::size_t left = sections_[static_cast<std::size_t>(Section::Data)].size();
  std::vector<Nesting> nestings(valueCount_);
  copiedBytes_.resize(valueCount_);
  for (std::size_t i = 0; i < valueCount_; ++i) {
    const SavedValue value = this->value(i);
    const std::size_t bytes = checkValue(value, i, names_.size());
    if (bytes > left) {
      refuseFile(tagOf(Section::Values), i * sizeof(ValueEntry), "two values have the same data");
    }
    left -= bytes;
    copiedBytes_[i] = bytes;
    checkFunctionName(value, i);
    checkElements(i, nestings);
  }
}

void FileTables::checkFunctionName(const SavedValue& value, std::size_t index) const {
  if (value.classId() == kxFUNCTION_CLASS &&
      names_[static_cast<std::size_t>(value.entry.payload)].size() > kMaxFunctionName) {
    refuseFile(
        tagOf(Section::Values), index * sizeof(ValueEntry),
        "the name of a function is longer than " + std::to_string(kMaxFunctionName) + " bytes");
  }
}

void FileTables::checkElements(std::size_t index, std::vector<Nesting>& nestings) {
  const SavedValue value = this->value(index);
  const auto require = [&](bool holds, const char* reason) {
    if (!holds) {
      refuseFile(tagOf(Section::Values), index * sizeof(ValueEntry), reason);
    }
  };
  const std::size_t mostExpansion = kMaxExpansion + size();
  Nesting& nesting = nestings[index];
  nesting.expansion =
      expansionOf(value.classId(), value.dimensions.front(), value.elements, copiedBytes_[index]);
  const std::size_t mostCopied = kCopiedForFree + size();
  forEachReference(value, [&](Reference reference) {
    checkReference(index, reference);
    if (!reference.isNull() && !reference.isObject()) {
      require(value.classId() != kxOBJECT_CLASS,
              "an object array holds something that isn't an object");
      const Nesting& inner = nestings[reference.index()];
      nesting.depth = std::max(nesting.depth, inner.depth);
      nesting.expansion = std::min(nesting.expansion + inner.expansion, mostExpansion + 1);
      if (value.classId() == kxSTRUCT_CLASS) {
        copiedBytes_[index] =
            std::min(copiedBytes_[index] + copiedBytes_[reference.index()], mostCopied);
      }
    }
  });
  require(nesting.depth < kMaxNesting, "values are nested too deep");
  require(nesting.expansion <= mostExpansion, "values are nested too often");
  ++nesting.depth;
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
