#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "column/bytes.h"
#include "source/SourceFile.h"
#include "source/memory/generators.h"
#include "source/npy/NpyHeader.h"

namespace kv::runtime {

/// The elements of `.npy` files, one after another, which are read by position.
///
/// Immutable. Threads: any, several at a time.
class NpyArray final : public ArrayBlock, public std::enable_shared_from_this<NpyArray> {
 public:
  /// A file, and where its rows are in the array.
  struct Part {
    SourceFile file;
    std::int64_t dataStart = 0;
    std::int64_t firstRow = 0;
    std::int64_t rows = 0;
    bool isFortran = false;
  };

  /// Requires: at least one part; `code` is that of a known element.
  NpyArray(std::string code, Dimensions trailing, std::vector<Part> parts);

  /// Errors: "KALVEX:datastore:BadNpy", "KALVEX:datastore:DifferentArrays"; as for lookAtFiles().
  static std::shared_ptr<const NpyArray> open(const std::vector<SourceFile>& files);

  /// Reads what describe() wrote.
  /// Errors: "KALVEX:executor:BadBytes".
  static std::shared_ptr<const NpyArray> read(ByteReader& bytes);
  void describe(ByteWriter& bytes, bool isForSave) const;

  const NpyElement& element() const { return element_; }
  const Dimensions& trailing() const { return trailing_; }
  std::int64_t rows() const { return parts_.back().firstRow + parts_.back().rows; }

  /// Its columns, in column-major order.
  std::vector<std::shared_ptr<const ArrayColumn>> columns() const;

  /// Errors: "KALVEX:datastore:SourceChanged"; "KALVEX:datastore:BadNpy" for a time that doesn't
  ///         fit; as for SourceInput.
  std::vector<Column> read(std::int64_t first, std::int64_t count,
                           const std::vector<std::size_t>& columns) const override;

  std::vector<std::string> files() const override;
  std::string fileOf(std::int64_t position) const override;

 private:
  std::vector<Column> readPart(const Part& part, std::int64_t first, std::int64_t count,
                               const std::vector<std::size_t>& columns) const;

  std::string code_;
  NpyElement element_;
  Dimensions trailing_;
  std::vector<std::size_t> places_;  ///< of each column in a row in C order
  std::vector<Part> parts_;
};

/// A column of such an array; see ReadFileColumn.
std::shared_ptr<const ArrayColumn> readNpyColumn(ByteReader& bytes, const PositionCut& cut,
                                                 const ArrayColumn* previous);

}  // namespace kv::runtime
