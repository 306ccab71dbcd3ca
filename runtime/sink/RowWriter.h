#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Chunk.h"
#include "sink/OutputFile.h"

namespace kv::runtime {

/// The columns of a file.
struct SinkSchema {
  std::vector<std::string> names{};  ///< none for an array
  std::vector<ElementType> types{};  ///< of the columns; of an array one
  Dimensions trailing{};             ///< of an array

  bool operator==(const SinkSchema&) const = default;

  bool isArray() const { return names.empty(); }

  /// That of the rows of a chunk: of a table with these names, or of an array if there are none.
  static SinkSchema of(const Chunk& rows, const std::vector<std::string>& names);

  void write(ByteWriter& bytes) const;
  static SinkSchema read(ByteReader& bytes);
};

/// Writes the rows of one file.
///
/// The bytes depend only on the schema and the chunks, in order.
class RowWriter {
 public:
  virtual ~RowWriter() = default;

  /// Requires: the columns of the schema.
  /// Errors: those of OutputFile; "KALVEX:sink:MissingValue" where the format has no missing value.
  virtual void write(const Chunk& rows) = 0;

  /// Called once, after the last rows; not to sync the file.
  virtual void finish() = 0;
};

/// Makes one file of pieces, each written by a RowWriter.
class PieceJoiner {
 public:
  virtual ~PieceJoiner() = default;

  /// Errors: those of OutputFile.
  virtual void append(const std::string& path, std::int64_t rows) = 0;

  /// Called once, after the last piece.
  virtual void finish() = 0;
};

/// What a file is: a whole file, or a piece of one, which may lack what the whole has only once.
enum class FilePart : std::uint8_t { Whole, Piece };

using OutputPtr = std::shared_ptr<OutputFile>;

/// A format of files to write. Formats are rows of a table, in formats.cpp.
struct SinkFormat {
  std::string_view name;
  std::span<const std::string_view> endings;  ///< of file names; the first is that of part files

  /// Refuses columns that a file of this format can't hold.
  /// Errors: "KALVEX:sink:UnsupportedType" with the column; "KALVEX:sink:MixedTypes";
  ///         "KALVEX:array:NeedsTable".
  void (*checkSchema)(const SinkSchema& schema);
  std::unique_ptr<RowWriter> (*open)(const OutputPtr& file, const SinkSchema& schema,
                                     FilePart part);
  std::unique_ptr<PieceJoiner> (*join)(const OutputPtr& file, const SinkSchema& schema);
};

/// Null if there is none.
const SinkFormat* findSinkFormat(std::string_view name);
const SinkFormat* sinkFormatOfPath(std::string_view path);

/// The names of all, with their endings, for messages.
std::string sinkFormatNames();

// The functions of each format, in its folder.
void checkTableSchema(const SinkSchema& schema);
std::unique_ptr<RowWriter> openCsv(const OutputPtr& file, const SinkSchema& schema, FilePart part);
std::unique_ptr<PieceJoiner> joinCsv(const OutputPtr& file, const SinkSchema& schema);

std::unique_ptr<RowWriter> openIpc(const OutputPtr& file, const SinkSchema& schema, FilePart part);
std::unique_ptr<PieceJoiner> joinIpc(const OutputPtr& file, const SinkSchema& schema);

std::unique_ptr<RowWriter> openParquet(const OutputPtr& file, const SinkSchema& schema,
                                       FilePart part);
std::unique_ptr<PieceJoiner> joinParquet(const OutputPtr& file, const SinkSchema& schema);

void checkNpySchema(const SinkSchema& schema);
std::unique_ptr<RowWriter> openNpy(const OutputPtr& file, const SinkSchema& schema, FilePart part);
std::unique_ptr<PieceJoiner> joinNpy(const OutputPtr& file, const SinkSchema& schema);

}  // namespace kv::runtime
