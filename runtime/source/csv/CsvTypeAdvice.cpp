#include "source/csv/CsvTypeAdvice.h"

#include <algorithm>
#include <cassert>
#include <vector>

namespace kv::runtime {

namespace {

using enum ElementType;

struct Wider {
  ElementType type;
  std::vector<ElementType> types;  ///< possible replacements, smallest first
};

/// A double isn't wider than a 64-bit type, whose numbers it rounds, but it can represent fractions
/// and missing values, which the 64-bit type can't.
const std::vector<Wider>& widerTypes() {
  static const std::vector<Wider> table = {
      {Logical, {Int8, Int16, Int32, Int64, UInt64, Double}},
      {Int8, {Int16, Int32, Int64, UInt64, Double}},
      {UInt8, {UInt16, Int16, UInt32, Int32, UInt64, Int64, Double}},
      {Int16, {Int32, Int64, UInt64, Double}},
      {UInt16, {UInt32, Int32, UInt64, Int64, Double}},
      {Int32, {Int64, UInt64, Double}},
      {UInt32, {UInt64, Int64, Double}},
      {Int64, {UInt64, Double}},
      {UInt64, {Int64, Double}},
      {Double, {Int64, UInt64, DateTime}},
  };
  return table;
}

}  // namespace

ElementType typeThatHolds(const CsvBlock& block, const CsvColumn& column) {
  assert(!column.convert(*block.fields).column);
  const auto row = std::ranges::find(widerTypes(), column.type(), &Wider::type);
  if (row == widerTypes().end()) {
    return String;
  }
  const auto holds = [&](ElementType type) {
    return column.as(type).convert(*block.fields).column.has_value();
  };
  const auto found = std::ranges::find_if(row->types, holds);
  return found == row->types.end() ? String : *found;
}

}  // namespace kv::runtime
