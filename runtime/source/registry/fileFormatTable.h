#pragma once

#include <array>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "kv/runtime/csv.h"
#include "kv/runtime/npy.h"
#include "source/BlockDatastore.h"
#include "source/csv/CsvDatastore.h"
#include "source/ipc/ipcBlocks.h"
#include "source/memory/ArrayDatastore.h"
#include "source/npy/NpyArray.h"
#include "source/parquet/parquetBlocks.h"

namespace kv::runtime {

/// A format of files, one row per folder of formats.
struct SourceFormat {
  std::string_view name;   ///< the first text of its descriptions
  std::string_view shown;  ///< for messages
  std::span<const std::string_view> endings;
  std::span<const std::string_view> magics;  ///< how its files begin
  std::unique_ptr<Datastore> (*open)(const FileRequest& request);
  std::shared_ptr<const Datastore> (*openDescribed)(ByteReader& description);
};

template <const BlockFormat& format>
std::unique_ptr<Datastore> openBlocks(const FileRequest& request) {
  return std::make_unique<BlockDatastore>(format, request.paths, request.types);
}

template <const BlockFormat& format>
std::shared_ptr<const Datastore> openDescribedBlocksOf(ByteReader& description) {
  return openDescribedBlocks(format, description);
}

template <const BlockFormat& format>
SourceFormat blockSource() {
  return {format.name,   format.shown,       format.endings,
          format.magics, openBlocks<format>, openDescribedBlocksOf<format>};
}

inline constexpr std::array<std::string_view, 1> kCsvEndings{".csv"};
inline constexpr std::array<std::string_view, 1> kNpyEndings{".npy"};
inline constexpr std::array<std::string_view, 1> kNpyMagics{"\x93NUMPY"};

/// The first is that of files which have neither the ending nor the magic of another. Arrays in
/// `.npy` files have the descriptions of arrays in memory.
inline const std::array kSourceFormats{
    SourceFormat{kCsvFormat,
                 "CSV",
                 kCsvEndings,
                 {},
                 [](const FileRequest& request) {
                   return openCsv(request.paths, request.types, request.csv);
                 },
                 openDescribedCsv},
    blockSource<kParquetBlocks>(),
    blockSource<kIpcBlocks>(),
    SourceFormat{
        kMemoryFormat, "NumPy", kNpyEndings, kNpyMagics,
        [](const FileRequest& request) { return openNpyTable(request.paths, request.types); },
        [](ByteReader& bytes) { return openDescribedArrays(bytes, readNpyColumn); }},
};

}  // namespace kv::runtime
