#pragma once

#include <memory>

namespace kv {

/// A call or an evaluation that waits for a session, which another thread uses. A front end derives
/// its own, for instance to release a lock of its interpreter for that time.
class Waiting {
 public:
  Waiting() = default;
  virtual ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
};

/// Makes each wait begin with `begin` and, once the thread has the session, drop the result; null
/// for nothing. A call that needn't wait makes none.
///
/// Threads: any; `begin` runs on the threads of the calls. It may throw std::bad_alloc.
void setWaiting(std::unique_ptr<Waiting> (*begin)());

}  // namespace kv
