#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Datastore.h"
#include "kv/runtime/PositionCut.h"
#include "source/memory/ArrayColumn.h"

namespace kv::runtime {

/// How a column is computed, or where it is; the first byte of its description.
enum class GeneratorKind : std::uint8_t { Full, Arange, WholeArange, Linspace, Random, File };

/// A column whose elements follow from their positions.
class Generator : public ArrayColumn {
 public:
  explicit Generator(ElementType type) : type_(type) {}

  ElementType type() const override { return type_; }
  bool isDescribed() const override { return true; }

 private:
  ElementType type_;
};

/// An array of generated columns, whose name is for messages.
std::shared_ptr<const Datastore> generated(std::string name, PositionCut cut, Dimensions trailing,
                                           std::vector<std::shared_ptr<const ArrayColumn>> columns);

/// The column that ArrayColumn::describe() described; of an array that is cut like that.
///
/// `previous`: the column that was read before; null for the first.
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const ArrayColumn> readGenerator(ByteReader& bytes, const PositionCut& cut,
                                                 const ArrayColumn* previous,
                                                 ReadFileColumn readFileColumn);

/// The same for a column of random numbers, after its kind.
std::shared_ptr<const ArrayColumn> readRandomColumn(ByteReader& bytes, const PositionCut& cut);

}  // namespace kv::runtime
