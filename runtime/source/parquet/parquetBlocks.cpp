#include "source/parquet/parquetBlocks.h"

#include <array>
#include <utility>

#include "kv/runtime/parquet.h"
#include "source/BlockDatastore.h"
#include "source/parquet/ParquetFooter.h"
#include "source/parquet/ParquetReader.h"

namespace kv::runtime {

namespace {

constexpr std::array<std::string_view, 1> kParquetEndings{".parquet"};
constexpr std::array<std::string_view, 1> kParquetMagics{"PAR1"};

std::shared_ptr<const BlockFile> readParquetFooter(const SourceInput& input) {
  return ParquetFooter::read(input);
}

std::unique_ptr<ChunkReader> openRowGroups(std::unique_ptr<ArrowInput> input,
                                           std::shared_ptr<const BlockFile> file,
                                           BlockRequest request,
                                           const CancellationToken& cancellation) {
  return std::make_unique<ParquetReader>(std::move(input),
                                         std::static_pointer_cast<const ParquetFooter>(file),
                                         std::move(request), cancellation);
}

/// A page of each column, compressed and not.
std::int64_t pageBytes(const BlockRun& /*groups*/, std::int64_t columns, std::int64_t /*all*/) {
  constexpr std::int64_t kPages = 2 << 20;
  return columns * kPages;
}

}  // namespace

constinit const BlockFormat kParquetBlocks{"parquet",      "Parquet", kParquetEndings,
                                           kParquetMagics, true,      readParquetFooter,
                                           openRowGroups,  pageBytes};

std::unique_ptr<Datastore> openParquet(const std::vector<std::string>& paths,
                                       const std::vector<TypeOverride>& types) {
  return std::make_unique<BlockDatastore>(kParquetBlocks, paths, types);
}

}  // namespace kv::runtime
