#include "RawFile.h"

#include <bit>

namespace kv::test {

using host::format::ObjectEntry;
using host::format::Section;

std::uint32_t RawFile::name(std::string_view text) {
  section(Section::Names) += packed(static_cast<std::uint32_t>(text.size()));
  section(Section::Names) += text;
  return names_++;
}

std::uint32_t RawFile::shape(std::string_view className,
                             std::initializer_list<std::string_view> properties) {
  std::string entry = packed({name(className), static_cast<std::uint32_t>(properties.size())});
  for (const std::string_view property : properties) {
    entry += packed(name(property));
  }
  section(Section::Shapes) += entry;
  return shapes_++;
}

Reference RawFile::object(std::uint32_t shape, const std::vector<Reference>& references,
                          ObjectForm form) {
  const std::size_t first = section(Section::References).size() / sizeof(std::uint32_t);
  for (const Reference reference : references) {
    section(Section::References) += packed(reference.code());
  }
  return objectAt(shape, static_cast<std::uint32_t>(form), first);
}

Reference RawFile::objectAt(std::uint32_t shape, std::uint32_t form, std::uint64_t firstReference) {
  section(Section::Objects) += packed(ObjectEntry{shape, form, firstReference});
  return Reference::object(objects_++);
}

Reference RawFile::value(const ValueEntry& entry) {
  section(Section::Values) += packed(entry);
  return Reference::value(values_++);
}

Reference RawFile::full(kxClassID id, const std::vector<std::uint64_t>& dimensions,
                        std::string_view contents, ValueForm form) {
  const std::uint64_t offset = section(Section::Data).size();
  for (const std::uint64_t extent : dimensions) {
    section(Section::Data) += packed(extent);
  }
  section(Section::Data) += contents;
  return value({static_cast<std::uint8_t>(id), static_cast<std::uint8_t>(form),
                static_cast<std::uint16_t>(dimensions.size()), 0, offset});
}

Reference RawFile::number(double value) {
  return this->value({kxDOUBLE_CLASS, static_cast<std::uint8_t>(ValueForm::Inline), 0, 0,
                      std::bit_cast<std::uint64_t>(value)});
}

Reference RawFile::chars(std::string_view text) {
  return full(kxCHAR_CLASS, {1, text.size()}, text, ValueForm::Narrow);
}

Reference RawFile::texts(std::size_t count, std::string_view text) {
  std::string lengths, characters;
  for (std::size_t i = 0; i < count; ++i) {
    lengths += packed(static_cast<std::uint32_t>(text.size() + 1));
    characters += text;
  }
  return full(kxSTRING_CLASS, {count, 1}, lengths + characters, ValueForm::Narrow);
}

Reference RawFile::flag(bool value) {
  return this->value({kxLOGICAL_CLASS, static_cast<std::uint8_t>(ValueForm::Inline), 0, 0, value});
}

Reference RawFile::cell(const std::vector<Reference>& elements) {
  std::string codes;
  for (const Reference element : elements) {
    codes += packed(host::format::ElementCode{element.code()});
  }
  return full(kxCELL_CLASS, {1, elements.size()}, codes);
}

Reference RawFile::record(std::initializer_list<std::pair<std::string_view, Reference>> fields) {
  std::string contents = packed(static_cast<std::uint32_t>(fields.size()));
  for (const auto& field : fields) {
    contents += packed(name(field.first));
  }
  for (const auto& field : fields) {
    contents += packed(host::format::ElementCode{field.second.code()});
  }
  return full(kxSTRUCT_CLASS, {1, 1}, contents);
}

Reference RawFile::objects(std::string_view className, const std::vector<Reference>& elements) {
  std::string contents = packed(name(className));
  for (const Reference element : elements) {
    contents += packed(host::format::ElementCode{element.code()});
  }
  return full(kxOBJECT_CLASS, {1, elements.size()}, contents);
}

void RawFile::root(Reference reference) { section(Section::Root) += packed(reference.code()); }

std::string RawFile::bytes() const {
  host::Sections sections = sections_;
  std::string& root = sections[static_cast<std::size_t>(Section::Root)];
  if (root.empty()) {
    root = packed(Reference().code());
  }
  std::string bytes = host::headerOf(sections);
  for (const std::string& section : sections) {
    bytes += section;
  }
  return bytes;
}

}  // namespace kv::test
