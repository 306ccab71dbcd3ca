#include "source/ipc/ipcBlocks.h"

#include <algorithm>
#include <array>
#include <utility>

#include "kv/runtime/ipc.h"
#include "source/BlockDatastore.h"
#include "source/ipc/IpcFile.h"
#include "source/ipc/IpcReader.h"

namespace kv::runtime {

namespace {

using namespace std::string_view_literals;

constexpr std::array kIpcEndings{".arrow"sv, ".feather"sv, ".ipc"sv, ".arrows"sv};
constexpr std::array kIpcMagics{"ARROW1"sv, "\xFF\xFF\xFF\xFF"sv, "FEA1"sv};

std::shared_ptr<const BlockFile> readIpcBatches(const SourceInput& input) {
  return IpcFile::read(input);
}

std::unique_ptr<ChunkReader> openBatches(std::unique_ptr<ArrowInput> input,
                                         std::shared_ptr<const BlockFile> file,
                                         BlockRequest request,
                                         const CancellationToken& cancellation) {
  return std::make_unique<IpcReader>(std::move(input),
                                     std::static_pointer_cast<const IpcFile>(file),
                                     std::move(request), cancellation);
}

/// What is requested of the largest batch.
std::int64_t batchBytes(const BlockRun& batches, std::int64_t columns, std::int64_t allColumns) {
  return batches.largest / std::max<std::int64_t>(allColumns, 1) * columns;
}

}  // namespace

constinit const BlockFormat kIpcBlocks{"ipc", "Arrow IPC",    kIpcEndings, kIpcMagics,
                                       false, readIpcBatches, openBatches, batchBytes};

std::unique_ptr<Datastore> openIpc(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types) {
  return std::make_unique<BlockDatastore>(kIpcBlocks, paths, types);
}

}  // namespace kv::runtime
