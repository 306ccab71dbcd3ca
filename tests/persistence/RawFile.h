#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "save/Container.h"
#include "save/format.h"

namespace kv::test {

using host::format::ObjectForm;
using host::format::Reference;
using host::format::ValueEntry;
using host::format::ValueForm;

/// A file whose tables contain whatever a test puts there, with correct lengths and checksums.
class RawFile {
 public:
  std::uint32_t name(std::string_view text);
  /// A class and its properties; their names are added to the file.
  std::uint32_t shape(std::string_view className,
                      std::initializer_list<std::string_view> properties = {});
  Reference object(std::uint32_t shape, const std::vector<Reference>& references = {},
                   ObjectForm form = ObjectForm::Properties);
  /// An object whose references are at any position.
  Reference objectAt(std::uint32_t shape, std::uint32_t form, std::uint64_t firstReference);

  Reference value(const ValueEntry& entry);
  /// A value whose dimensions and content are added to the data.
  Reference full(kxClassID id, const std::vector<std::uint64_t>& dimensions,
                 std::string_view contents, ValueForm form = ValueForm::Full);
  Reference number(double value);
  Reference chars(std::string_view text);
  /// A string scalar; a column of equal ones.
  Reference text(std::string_view text) { return texts(1, text); }
  Reference texts(std::size_t count, std::string_view text);
  Reference flag(bool value);
  Reference cell(const std::vector<Reference>& elements);
  Reference record(std::initializer_list<std::pair<std::string_view, Reference>> fields);
  Reference objects(std::string_view className, const std::vector<Reference>& elements);

  void root(Reference reference);
  /// The whole file; the root is null unless one was set.
  std::string bytes() const;

  std::string& section(host::format::Section which) {
    return sections_[static_cast<std::size_t>(which)];
  }
  /// The index of the next object, value, ... to be added.
  std::uint32_t nextObject() const { return objects_; }
  std::uint32_t nextValue() const { return values_; }

 private:
  host::Sections sections_;
  std::uint32_t names_ = 0;
  std::uint32_t shapes_ = 0;
  std::uint32_t objects_ = 0;
  std::uint32_t values_ = 0;
};

/// The bytes of a number, or of several.
template <class Number>
std::string packed(std::initializer_list<Number> numbers) {
  return {reinterpret_cast<const char*>(numbers.begin()), numbers.size() * sizeof(Number)};
}
template <class Number>
std::string packed(Number number) {
  return packed({number});
}

}  // namespace kv::test
