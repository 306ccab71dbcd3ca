#pragma once

#include <memory>

#include "source/BlockFile.h"

namespace kv::runtime {

/// A file of record batches in Arrow's IPC format: the file format, also called Feather, whose end
/// lists the batches, or the stream format.
struct IpcFile final : BlockFile {
  /// A stream is read from its beginning, since its dictionaries may change on the way.
  bool isStream() const { return isOneRun; }

  /// Errors: "KALVEX:datastore:BadIpc" with the fault; as for SourceInput.
  /// Cost:   reads the header of each batch.
  static std::shared_ptr<const IpcFile> read(const SourceInput& input);
};

/// Errors: always "KALVEX:datastore:BadIpc".
[[noreturn]] void refuseIpc(const SourceFile& file, std::string reason);

}  // namespace kv::runtime
