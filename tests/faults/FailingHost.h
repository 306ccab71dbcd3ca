#pragma once

#include <cstdint>

#include "faults/FaultPlaces.h"

/// A host whose operations fail on demand. The operations of the platform interface that can fail,
/// as the core and the runtime call them, are counted in one sequence, and a chosen one fails.
///
/// The program links core and runtime with `--wrap` for the operations that FailingHost.cpp defines
/// as `__wrap_...`; they call the product's own host.
namespace kv::test {

enum class HostFault {
  Raises,        ///< the operation raises "test:Fault" and does nothing
  AnswersNull,   ///< a call by name or a property read of the core returns null instead of a value
  AnswersOther,  ///< the same with a value of another class
};

const char* nameOf(HostFault fault);

/// How work ends when the fault reaches the caller; see Outcome.
inline constexpr const char* kTestFault = "error test:Fault";

/// Makes an operation of the host fail during its lifetime.
class FailingHost {
 public:
  /// `places`: which of the operations that can fail this way do so, from now on.
  FailingHost(FaultPlaces places, HostFault fault) noexcept;
  ~FailingHost();
  FailingHost(const FailingHost&) = delete;
  FailingHost& operator=(const FailingHost&) = delete;

  /// Number of operations since construction that can fail this way.
  std::uint64_t asked() const noexcept;
  /// The operations that failed, their arguments, and the enclosing call; empty if none failed.
  const char* failed() const noexcept;
};

}  // namespace kv::test
