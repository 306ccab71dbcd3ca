#pragma once

#include <cstdint>

#include "faults/FaultPlaces.h"

/// A host whose operations fail on demand: each operation of the platform interface that can fail,
/// as the core and the runtime call it, counts as one of a sequence, and a chosen one fails.
///
/// The program links core and runtime with `--wrap` for the operations that FailingHost.cpp
/// defines as `__wrap_...`; the host behind them is the product's own.
namespace kv::test {

enum class HostFault {
  Raises,        ///< the operation raises "test:Fault" and does nothing
  AnswersNull,   ///< a call by name or a property read of the core answers null for a value
  AnswersOther,  ///< the same with a value of another class
};

const char* nameOf(HostFault fault);

/// How work ends that the fault went through; see Outcome.
inline constexpr const char* kTestFault = "error test:Fault";

/// Lets an operation of the host fail within its life.
class FailingHost {
 public:
  /// `places`: which of the operations that can fail so do, from now on.
  FailingHost(FaultPlaces places, HostFault fault) noexcept;
  ~FailingHost();
  FailingHost(const FailingHost&) = delete;
  FailingHost& operator=(const FailingHost&) = delete;

  /// Operations since its birth that can fail so.
  std::uint64_t asked() const noexcept;
  /// The operations that failed, what they were called with and inside which call; empty if none.
  const char* failed() const noexcept;
};

}  // namespace kv::test
