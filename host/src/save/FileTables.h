#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "save/Container.h"
#include "save/SavedValue.h"
#include "save/format.h"

namespace kv::host {

/// A class and the properties that its objects have in a file, by indices of names.
struct SavedShape {
  std::uint32_t className;
  std::vector<std::uint32_t> properties;
};

/// The tables of a file, all of whose lengths, counts and references have been checked: code that
/// reads them needs no further check.
///
/// A value refers to earlier values only. A record of an object comes before each value that refers
/// to that object. So values can be made in ascending order, and an object when it is first
/// referred to.
class FileTables {
 public:
  /// Lives: as long as the bytes of the sections.
  /// Errors: "KALVEX:load:Corrupt".
  explicit FileTables(const SectionViews& sections);

  std::string_view name(std::uint32_t index) const { return names_[index]; }
  const SavedShape& shape(const format::ObjectEntry& entry) const { return shapes_[entry.shape]; }

  std::size_t objectCount() const { return objectCount_; }
  format::ObjectEntry object(std::size_t index) const;
  format::Reference reference(std::uint64_t index) const;

  std::size_t valueCount() const { return valueCount_; }
  SavedValue value(std::size_t index) const;
  /// Calls `visit(reference)` for each value and object that a value refers to.
  template <class Visit>
  void forEachReference(const SavedValue& value, Visit visit) const;

  /// Bytes of the data that code copies which takes a value apart: the value's own, and those of a
  /// structure's fields. 0 for what the value's entry holds, and for objects.
  std::size_t copiedBytes(format::Reference reference) const {
    return reference.isNull() || reference.isObject() ? 0 : copiedBytes_[reference.index()];
  }

  format::Reference root() const { return root_; }
  /// Bytes of all sections.
  std::size_t size() const;

  /// Offset of the entry of an object in its section.
  static std::size_t objectOffset(std::size_t index) { return index * sizeof(format::ObjectEntry); }

 private:
  void readNames(std::string_view bytes);
  void readShapes(std::string_view bytes);
  void checkObjects() const;
  void checkValues();
  /// A value together with all values in it.
  struct Nesting {
    std::size_t depth = 0;
    std::size_t expansion = 0;  ///< elements, those of a shared value as often as it occurs
  };
  void checkFunctionName(const SavedValue& value, std::size_t index) const;
  void checkElements(std::size_t index, std::vector<Nesting>& nestings);
  void checkReference(std::size_t index, format::Reference reference) const;

  SectionViews sections_;
  std::vector<std::string_view> names_;
  std::vector<SavedShape> shapes_;
  std::size_t objectCount_ = 0;
  std::size_t valueCount_ = 0;
  std::vector<std::size_t> copiedBytes_;  ///< of each value
  format::Reference root_;
};

template <class Visit>
void FileTables::forEachReference(const SavedValue& value, Visit visit) const {
  const ReferenceRange range = referencesOf(value);
  for (std::size_t i = 0; i < range.count; ++i) {
    visit(range.at(value, i));
  }
}

}  // namespace kv::host
