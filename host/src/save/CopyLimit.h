#pragma once

#include <algorithm>
#include <cstddef>

#include "save/format.h"

namespace kv::host {

/// How much a load may still copy of values that the file has once: links that a setter keeps in a
/// separate list, ids, keys, names. Without a limit, many objects that share one long value would
/// take far more memory than the file has bytes.
class CopyLimit {
 public:
  explicit CopyLimit(std::size_t fileBytes) : left_(std::max(fileBytes, format::kCopiedForFree)) {}

  /// Result: false, and nothing taken, if less is left.
  [[nodiscard]] bool take(std::size_t bytes) {
    if (bytes > left_) {
      return false;
    }
    left_ -= bytes;
    return true;
  }

 private:
  std::size_t left_;
};

}  // namespace kv::host
