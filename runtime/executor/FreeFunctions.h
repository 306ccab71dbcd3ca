#pragma once

#include <cstddef>
#include <memory>

#include "operator/UserFunctions.h"

namespace kv::runtime {

/// The users' functions of a stage that may be called on any thread.
///
/// Threads: any, at the same time.
class FreeFunctions {
 public:
  virtual ~FreeFunctions() = default;

  /// True if `call` of that step may be made on a worker.
  virtual bool isFree(std::size_t step) const = 0;

  /// The functions for one worker, which has them to itself. Made at its first call.
  /// Lives: no longer than this.
  virtual std::unique_ptr<UserFunctions> open() const = 0;
};

}  // namespace kv::runtime
