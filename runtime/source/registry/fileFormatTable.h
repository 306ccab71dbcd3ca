#pragma once

#include <array>
#include <memory>
#include <string_view>
#include <vector>

#include "kv/runtime/csv.h"
#include "kv/runtime/parquet.h"
#include "source/csv/CsvDatastore.h"
#include "source/parquet/ParquetDatastore.h"

namespace kv::runtime {

/// A format of files, one row per folder of formats.
struct SourceFormat {
  std::string_view name;   ///< the first text of its descriptions
  std::string_view shown;  ///< for messages
  std::string_view ending;
  std::string_view magic;  ///< how its files begin
  std::unique_ptr<Datastore> (*open)(const FileRequest& request);
  std::shared_ptr<const Datastore> (*openDescribed)(ByteReader& description);
};

/// The first is that of files which have neither the ending nor the magic of another.
inline constexpr std::array kSourceFormats{
    SourceFormat{kCsvFormat, "CSV", ".csv", "",
                 [](const FileRequest& request) {
                   return openCsv(request.paths, request.types, request.csv);
                 },
                 openDescribedCsv},
    SourceFormat{
        kParquetFormat, "Parquet", ".parquet", "PAR1",
        [](const FileRequest& request) { return openParquet(request.paths, request.types); },
        openDescribedParquet},
};

}  // namespace kv::runtime
