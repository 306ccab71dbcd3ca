// The tables of a file as they grow. Small equal values are written once, found by the bytes of
// their entry. The expansion of each value is counted as it is added, by the same rule that a load
// applies, so a value that no load would accept is refused while it can still be named.

#include "save/FileBuilder.h"

#include <algorithm>
#include <cstring>

#include "kv/host/errors.h"
#include "kx/array.h"
#include "kx/string.h"

namespace kv::host {

namespace {

using namespace format;

template <class Item>
void append(std::string& bytes, const Item& item) {
  bytes.append(reinterpret_cast<const char*>(&item), sizeof(item));
}

/// The index of an item that is added to `count` others.
std::uint32_t nextIndex(std::uint32_t& count) {
  if (count >= Reference::kMaxIndex) {
    raise("KALVEX:CountTooLarge",
          {std::to_string(std::uint64_t{count} + 1), std::to_string(Reference::kMaxIndex)});
  }
  return count++;
}

bool isNarrow(std::u16string_view text) {
  return std::ranges::all_of(text, [](char16_t unit) { return unit < 256; });
}

void appendUnits(std::string& bytes, std::u16string_view text, bool narrow) {
  if (narrow) {
    std::ranges::transform(text, std::back_inserter(bytes),
                           [](char16_t unit) { return static_cast<char>(unit); });
  } else {
    bytes.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
  }
}

bool areNarrow(const kxArray* texts) {
  for (std::size_t i = 0; i < kxGetNumberOfElements(texts); ++i) {
    if (!isNarrow(Torvane::String::getString(texts, i).value_or(std::u16string_view()))) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::uint32_t FileBuilder::name(std::string_view text) {
  auto [place, isNew] = names_.try_emplace(std::string(text), 0);
  if (isNew) {
    place->second = static_cast<std::uint32_t>(names_.size() - 1);
    append(section(Section::Names), static_cast<std::uint32_t>(text.size()));
    section(Section::Names) += text;
  }
  return place->second;
}

std::uint32_t FileBuilder::addShape(std::string_view className,
                                    const std::vector<std::string_view>& properties) {
  std::string& bytes = section(Section::Shapes);
  append(bytes, name(className));
  append(bytes, static_cast<std::uint32_t>(properties.size()));
  for (const std::string_view property : properties) {
    append(bytes, name(property));
  }
  return nextIndex(shapes_);
}

std::uint32_t FileBuilder::addObject() {
  append(section(Section::Objects), ObjectEntry{});
  return nextIndex(objects_);
}

void FileBuilder::setObject(std::uint32_t index, std::uint32_t shape, ObjectForm form,
                            const std::vector<Reference>& references) {
  std::string& bytes = section(Section::References);
  const ObjectEntry entry{.shape = shape,
                          .form = static_cast<std::uint32_t>(form),
                          .firstReference = bytes.size() / sizeof(std::uint32_t)};
  for (const Reference reference : references) {
    append(bytes, reference.code());
  }
  std::memcpy(section(Section::Objects).data() + index * sizeof(entry), &entry, sizeof(entry));
}

Reference FileBuilder::addPlain(const kxArray* value) {
  const kxClassID id = kxGetClassID(value);
  if (id == kxSTRING_CLASS || (id == kxCHAR_CLASS && !kxIsScalar(value))) {
    return addText(value);
  }
  if (kxIsScalar(value)) {
    return addScalar(value);
  }
  const ValueEntry entry = beginFull(value);
  const std::size_t bytes = kxGetNumberOfElements(value) * kxGetElementSize(id);
  if (bytes > 0) {
    section(Section::Data).append(static_cast<const char*>(kxGetData(value)), bytes);
  }
  return addEntry(entry);
}

Reference FileBuilder::addFunction(std::string_view functionName, bool isPlaceholder) {
  if (functionName.size() > kMaxFunctionName) {
    raise("KALVEX:save:NotSaveable",
          {"function_handle",
           "its name is longer than " + std::to_string(kMaxFunctionName) + " bytes"});
  }
  return addEntry({.classCode = kxFUNCTION_CLASS,
                   .form = static_cast<std::uint8_t>(ValueForm::Inline),
                   .dimensions = 0,
                   .flags = isPlaceholder ? kPlaceholder : 0,
                   .payload = name(functionName)});
}

Reference FileBuilder::addContainer(const kxArray* value,
                                    const std::vector<Reference>& references) {
  const ValueEntry entry = beginFull(value);
  const kxClassID id = kxGetClassID(value);
  std::string& bytes = section(Section::Data);
  if (id == kxSTRUCT_CLASS) {
    const std::size_t fields = kxGetNumberOfFields(value);
    append(bytes, static_cast<std::uint32_t>(fields));
    for (std::size_t i = 0; i < fields; ++i) {
      append(bytes, name(kxGetFieldName(value, i)));
    }
  } else if (id == kxOBJECT_CLASS) {
    append(bytes, name(kxGetClassName(value)));
  }
  for (const Reference reference : references) {
    append(bytes, ElementCode{reference.code()});
  }
  return addFull(entry, value, references);
}

/// Adds the entry of a value whose data have been written.
Reference FileBuilder::addFull(ValueEntry entry, const kxArray* value,
                               const std::vector<Reference>& references) {
  std::size_t expansion =
      expansionOf(kxGetClassID(value), kxGetDimensions(value).front(), kxGetNumberOfElements(value),
                  section(Section::Data).size() - entry.payload);
  for (const Reference reference : references) {
    if (!reference.isNull() && !reference.isObject()) {
      expansion += expansions_[reference.index()];
    }
  }
  if (expansion > kMaxExpansion + section(Section::Data).size()) {
    refuseExpansion(value);
  }
  const Reference made = addEntry(entry);
  expansions_.back() = expansion;
  return made;
}

void FileBuilder::refuseExpansion(const kxArray* value) {
  raise("KALVEX:save:NotSaveable", {kxGetClassName(value), "it has too many elements"});
}

void FileBuilder::setRoot(Reference root) { append(section(Section::Root), root.code()); }

Reference FileBuilder::addEntry(ValueEntry entry) {
  std::string bytes;
  append(bytes, entry);
  const bool isWhole = entry.form == static_cast<std::uint8_t>(ValueForm::Inline);
  if (isWhole) {
    if (const auto known = small_.find(bytes); known != small_.end()) {
      return known->second;
    }
  }
  section(Section::Values) += bytes;
  const Reference made = Reference::value(nextIndex(values_));
  expansions_.push_back(1);
  if (isWhole) {
    small_.emplace(std::move(bytes), made);
  }
  return made;
}

ValueEntry FileBuilder::beginFull(const kxArray* value) {
  std::string& bytes = section(Section::Data);
  const ValueEntry entry{.classCode = static_cast<std::uint8_t>(kxGetClassID(value)),
                         .form = static_cast<std::uint8_t>(ValueForm::Full),
                         .dimensions = static_cast<std::uint16_t>(kxGetDimensions(value).size()),
                         .flags = 0,
                         .payload = bytes.size()};
  for (const std::size_t extent : kxGetDimensions(value)) {
    append(bytes, static_cast<std::uint64_t>(extent));
  }
  return entry;
}

Reference FileBuilder::addScalar(const kxArray* value) {
  ValueEntry entry{.classCode = static_cast<std::uint8_t>(kxGetClassID(value)),
                   .form = static_cast<std::uint8_t>(ValueForm::Inline),
                   .dimensions = 0,
                   .flags = 0,
                   .payload = 0};
  std::memcpy(&entry.payload, kxGetData(value), kxGetElementSize(kxGetClassID(value)));
  return addEntry(entry);
}

Reference FileBuilder::addText(const kxArray* value) {
  ValueEntry entry = beginFull(value);
  std::string& bytes = section(Section::Data);
  const bool isChar = kxGetClassID(value) == kxCHAR_CLASS;
  const bool narrow = isChar ? isNarrow(kxGetChars(value)) : areNarrow(value);
  if (isChar) {
    appendUnits(bytes, kxGetChars(value), narrow);
  } else {
    const std::size_t count = kxGetNumberOfElements(value);
    for (std::size_t i = 0; i < count; ++i) {
      const auto text = Torvane::String::getString(value, i);
      append(bytes, static_cast<TextLength>(text ? text->size() + 1 : 0));
    }
    for (std::size_t i = 0; i < count; ++i) {
      appendUnits(bytes, Torvane::String::getString(value, i).value_or(std::u16string_view()),
                  narrow);
    }
  }
  entry.form = static_cast<std::uint8_t>(narrow ? ValueForm::Narrow : ValueForm::Full);
  return addFull(entry, value);
}

}  // namespace kv::host
