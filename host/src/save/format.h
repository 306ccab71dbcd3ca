#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "kx/array.h"

/// The layout of saved files, as docs/format.md describes it. Numbers are little-endian; sizes in
/// bytes.
namespace kv::host::format {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

inline constexpr std::string_view kMagic("\x89KVB\r\n\x1a\n", 8);
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::size_t kReleaseBytes = 16;

enum class Section : std::uint8_t { Names, Shapes, Objects, References, Values, Data, Root };
inline constexpr std::size_t kSections = 7;
inline constexpr std::array<std::string_view, kSections> kSectionTags{
    "NAME", "SHAP", "OBJS", "REFS", "VALS", "DATA", "ROOT"};

// The header: magic, version, number of sections, release, one entry per section, checksum of all
// that.
inline constexpr std::size_t kVersionAt = 8;
inline constexpr std::size_t kCountAt = 12;
inline constexpr std::size_t kReleaseAt = 16;
inline constexpr std::size_t kTableAt = kReleaseAt + kReleaseBytes;
inline constexpr std::size_t kTableEntryBytes = 24;  // tag, zero, length, checksum
inline constexpr std::size_t kHeaderChecksumAt = kTableAt + kSections * kTableEntryBytes;
inline constexpr std::size_t kHeaderBytes = kHeaderChecksumAt + sizeof(std::uint64_t);

/// Values may be nested this deep.
inline constexpr std::size_t kMaxNesting = 1000;

/// A value and all values in it, each counted as often as it occurs, have no more elements than
/// this and the bytes of the file together: some readers expand values that are shared.
inline constexpr std::size_t kMaxExpansion = std::size_t{1} << 16;

/// A save writes again what is shared more often than that, up to this many elements.
inline constexpr std::size_t kMaxRewritten = std::size_t{1} << 22;

/// Texts are counted by their bytes, too: this many count as one element.
inline constexpr std::size_t kElementTextBytes = 16;

/// What a value counts for that, without the values in it: elements that aren't plain memory, rows
/// of characters, and texts by the bytes that they take in the file.
constexpr std::size_t expansionOf(kxClassID id, std::size_t rows, std::size_t elements,
                                  std::size_t bytes) {
  switch (id) {
    case kxCELL_CLASS:
    case kxSTRUCT_CLASS:
    case kxOBJECT_CLASS:
      return 1 + elements;
    case kxSTRING_CLASS:
      return 1 + elements + bytes / kElementTextBytes;
    case kxCHAR_CLASS:
      return 1 + (elements == 0 ? rows / kElementTextBytes : rows) + bytes / kElementTextBytes;
    default:
      return 1;
  }
}

/// Where loading copies what a value holds (ids, links, keys, names, paths), each copy counts the
/// bytes that the value takes in the file. All copies together count no more than this, or than the
/// file has bytes.
inline constexpr std::size_t kCopiedForFree = 1'000'000;

/// The longest name of a function: operations that share a function each have its name.
inline constexpr std::size_t kMaxFunctionName = 4096;

/// Each structure has its fields' names, and each array of objects that of its class. Longer ones
/// count as copies.
inline constexpr std::size_t kNameForFree = 256;

/// A value has no more dimensions than this.
inline constexpr std::size_t kMaxDimensions = 32;

/// Refers to a value or to an object from anywhere in a file.
class Reference {
 public:
  static constexpr std::uint32_t kMaxIndex = (std::uint32_t{1} << 31) - 2;

  constexpr Reference() = default;
  static constexpr Reference fromCode(std::uint32_t code) { return Reference(code); }
  static constexpr Reference value(std::uint32_t index) { return Reference((index + 1) << 1); }
  static constexpr Reference object(std::uint32_t index) { return Reference(index << 1 | 1); }

  constexpr std::uint32_t code() const { return code_; }
  constexpr bool isNull() const { return code_ == 0; }
  constexpr bool isObject() const { return (code_ & 1) != 0; }
  constexpr std::uint32_t index() const { return isObject() ? code_ >> 1 : (code_ >> 1) - 1; }

 private:
  constexpr explicit Reference(std::uint32_t code) : code_(code) {}

  std::uint32_t code_ = 0;
};

/// What a reference takes in the data of a container, where it makes an element: wide enough that
/// elements take no more than 16 times their part of the file.
using ElementCode = std::uint64_t;

/// How an object is written in the file.
enum class ObjectForm : std::uint32_t {
  Properties = 0,          ///< a reference for each property of its shape
  PropertiesAndSaved = 1,  ///< and one to what its class saves besides
  Record = 2,              ///< one reference, to a structure that its class made
};
inline constexpr std::uint32_t kObjectForms = 3;

/// An entry of the table of objects.
struct ObjectEntry {
  std::uint32_t shape;
  std::uint32_t form;            ///< an ObjectForm
  std::uint64_t firstReference;  ///< in the section of references
};
static_assert(sizeof(ObjectEntry) == 16);

/// How a value is written in the file.
enum class ValueForm : std::uint8_t {
  Full = 0,    ///< `payload` is an offset in the data: dimensions, then contents
  Narrow = 1,  ///< the same, text with one byte per character
  Inline = 2,  ///< 1-by-1, and `payload` is the element itself, or the index of a name
};
inline constexpr std::uint8_t kValueForms = 3;

/// An entry of the table of values.
struct ValueEntry {
  std::uint8_t classCode;    ///< a kxClassID; the numbers are part of the format
  std::uint8_t form;         ///< a ValueForm
  std::uint16_t dimensions;  ///< how many; 0 with `Inline`
  std::uint32_t flags;       ///< of a function handle: kPlaceholder; else 0
  std::uint64_t payload;
};
static_assert(sizeof(ValueEntry) == 16);

inline constexpr std::uint32_t kPlaceholder = 1;  ///< the name of a callable, which isn't saved

/// Length of a text in the data: 0 for a missing one, otherwise one more than its characters.
using TextLength = std::uint32_t;

}  // namespace kv::host::format
