#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "kv/host/session.h"

namespace kv::runtime {

/// The sessions in which an evaluation calls free functions on its workers: each is used by one
/// worker at a time, made when none is left, and closed with the evaluation.
///
/// Threads: any, but for the destructor, which comes after all uses.
class WorkerSessions {
 public:
  using Open = std::function<std::unique_ptr<host::Session>()>;

  /// `open`: makes a session; null if free functions are to be called in the lane.
  explicit WorkerSessions(Open open) : open_(std::move(open)) {}

  bool canOpen() const { return open_ != nullptr; }

  /// Errors: those of `open`.
  std::unique_ptr<host::Session> take();
  void giveBack(std::unique_ptr<host::Session> session) noexcept;

 private:
  const Open open_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<host::Session>> idle_;
};

}  // namespace kv::runtime
