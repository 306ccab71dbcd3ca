#pragma once

#include "kv/host/export.h"

namespace kv::host {

class ClassRecord;
class Construction;
struct SessionState;

/// Sets the calls that run in this thread's current session aside for the span of its life, so that
/// another thread can lease the session meanwhile: no session is current here, and calls made there
/// have the rights of public code. Does nothing if none is current.
///
/// Requires: made and destroyed on one thread, while that thread leases the session; the thread's
/// call sites are closed.
class KV_HOST_API SessionPause {
 public:
  SessionPause() noexcept;
  ~SessionPause();
  SessionPause(const SessionPause&) = delete;
  SessionPause& operator=(const SessionPause&) = delete;

 private:
  SessionState* session_;
  const ClassRecord* caller_ = nullptr;
  Construction* construction_ = nullptr;
};

}  // namespace kv::host
