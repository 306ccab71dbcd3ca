#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kcos/interned.h"
#include "save/Container.h"
#include "save/format.h"

namespace kv::host {

/// The tables of a file while they are filled. Knows nothing of where values and objects come from.
///
/// Errors of all functions that add: "KALVEX:CountTooLarge" where a table has more entries than
/// references can distinguish; std::bad_alloc.
class FileBuilder {
 public:
  /// Index of a name; the same for the same text.
  std::uint32_t name(std::string_view text);

  /// Index of a shape: a class and the names of its properties.
  std::uint32_t addShape(std::string_view className,
                         const std::vector<std::string_view>& properties);

  /// A place for an object, to be filled with `setObject`.
  std::uint32_t addObject();
  void setObject(std::uint32_t index, std::uint32_t shape, format::ObjectForm form,
                 const std::vector<format::Reference>& references);

  /// A number, logical, character, text array: everything but its references.
  /// Small values that are equal share a place.
  ///
  /// This and `addContainer` raise "KALVEX:save:NotSaveable" for what no load would accept, see
  /// `kMaxExpansion`.
  format::Reference addPlain(const kxArray* value);
  /// A function handle, or the name of a callable, which isn't saved itself.
  format::Reference addFunction(std::string_view functionName, bool isPlaceholder);
  /// A cell, structure or object array, whose elements were added before; `references` in the
  /// order of elements, for structures field by field within an element.
  format::Reference addContainer(const kxArray* value,
                                 const std::vector<format::Reference>& references);

  /// Elements of a value that was added, with those of all values in it; 0 for objects.
  std::size_t expansionAt(format::Reference reference) const {
    return reference.isNull() || reference.isObject() ? 0 : expansions_[reference.index()];
  }
  /// Errors: "KALVEX:save:NotSaveable", always.
  [[noreturn]] static void refuseExpansion(const kxArray* value);

  void setRoot(format::Reference root);
  /// Moves the sections out.
  Sections take() { return std::move(sections_); }

 private:
  std::string& section(format::Section which) { return sections_[static_cast<std::size_t>(which)]; }
  format::Reference addEntry(format::ValueEntry entry);
  format::Reference addFull(format::ValueEntry entry, const kxArray* value,
                            const std::vector<format::Reference>& references = {});
  format::ValueEntry beginFull(const kxArray* value);
  format::Reference addScalar(const kxArray* value);
  format::Reference addText(const kxArray* value);

  Sections sections_;
  std::unordered_map<std::string, std::uint32_t> names_;
  std::uint32_t shapes_ = 0;
  std::uint32_t objects_ = 0;
  std::uint32_t values_ = 0;
  std::vector<std::size_t> expansions_;  ///< of each value: elements with those of all values in it
  /// Entries that hold their whole value, by their bytes.
  std::unordered_map<std::string, format::Reference> small_;
};

}  // namespace kv::host
