#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kv/host/definitions.h"
#include "kv/host/export.h"
#include "kv/host/session.h"
#include "kv/host/values.h"

/// Functions that don't depend on the session in which they are called, and what a session needs to
/// call those of another.
namespace kv::host {

/// Where a callable may run.
enum class CallMode : std::uint8_t {
  Session,    ///< in the session that has its handle
  AnyThread,  ///< in any session, on any thread, several calls at once
};

/// A handle of a native callable; for AnyThread, `body` must be safe to call from several threads.
KV_HOST_API Value makeFunctionHandle(std::string_view name, NativeBody body, CallMode mode);

/// Session for anything but a handle of a callable that was made with another mode.
KV_HOST_API CallMode callMode(const kxArray* handle) noexcept;

/// What a program, as opposed to libraries, has defined in a session.
class KV_HOST_API ProgramDefinitions {
 public:
  /// Those of the current session.
  static ProgramDefinitions ofCurrent();

  /// Defines all of it in `session`.
  /// Errors: those of the definitions.
  void defineIn(Session& session) const;

 private:
  std::vector<std::pair<std::string, std::shared_ptr<const NativeBody>>> functions_;
  std::vector<std::shared_ptr<const ClassDefinition>> classes_;
  std::vector<std::shared_ptr<const ClassCompletion>> completions_;
};

/// True if `carry` can carry a value: it has no objects, no callable of mode Session, and no
/// container of more than two dimensions.
KV_HOST_API bool isCarryable(const kxArray* value);

/// A value of another session for the current one; data is shared.
///
/// Requires: isCarryable(value).
/// Threads:  any, as long as `value` lives.
KV_HOST_API Value carry(const kxArray* value);

}  // namespace kv::host
