#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "kx/array.h"
#include "save/format.h"

namespace kv::host {

/// A value in a file: its entry, its dimensions, and the contents that follow them.
struct SavedValue {
  format::ValueEntry entry{};
  boost::container::small_vector<std::size_t, 4> dimensions{};
  std::size_t elements = 1;
  std::string_view contents{};  ///< to the end of the data

  kxClassID classId() const { return static_cast<kxClassID>(entry.classCode); }
  format::ValueForm form() const { return static_cast<format::ValueForm>(entry.form); }

  /// Number `index` of the numbers at the beginning of the contents.
  std::uint32_t number(std::size_t index) const;
  /// The reference to an element at `offset` bytes of the contents.
  format::ElementCode elementCode(std::size_t offset) const;
};

/// Where the references of a value begin in its contents, in bytes, and how many there are.
struct ReferenceRange {
  std::size_t offset = 0;
  std::size_t count = 0;

  format::Reference at(const SavedValue& value, std::size_t index) const {
    return format::Reference::fromCode(static_cast<std::uint32_t>(
        value.elementCode(offset + index * sizeof(format::ElementCode))));
  }
};
ReferenceRange referencesOf(const SavedValue& value);

/// Checks value number `index` against the bytes that are there: class, form, dimensions, and that
/// its contents end within the data. `names`: how many names the file has.
///
/// Result: bytes of the data that are the value's own; 0 for one that is in its entry.
/// Errors: "KALVEX:load:Corrupt".
std::size_t checkValue(const SavedValue& value, std::size_t index, std::size_t names);

/// True if the list has a name twice.
bool hasTwice(std::vector<std::uint32_t> names);

}  // namespace kv::host
