#pragma once

#include "heap/Payload.h"

namespace kv::host {

/// Destroys payloads and objects of a thread one after the other: however deeply values and objects
/// are nested, no destructor calls the next one.
///
/// Callables are released last, one by one: their destructors are code that isn't the host's and
/// may do anything.
class Teardown {
 public:
  /// Takes a payload that no array shares any more, and destroys it now or when the teardown that
  /// runs gets to it.
  static void enqueue(Payload* payload) noexcept;

  /// Destroys everything that is enqueued on this thread. Does nothing inside a running teardown,
  /// which goes on until all is done.
  static void run() noexcept;

  /// True while payloads or objects of this thread are being destroyed.
  static bool isRunning() noexcept { return depth_ != 0; }

  /// Defers all destruction on this thread until it ends.
  class Pause {
   public:
    Pause() noexcept { ++depth_; }
    ~Pause() {
      --depth_;
      run();
    }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

  /// Before it ends, destroys only what was enqueued while it lived, except callables.
  class Nested {
   public:
    Nested() noexcept;
    ~Nested();
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

   private:
    Payload* outer_;
  };

 private:
  static void destroyPayloads() noexcept;
  static void releaseCallables() noexcept;

  static constinit thread_local int depth_;
  static constinit thread_local Payload* payloads_;
  static constinit thread_local Payload* callables_;
  static constinit thread_local bool releasing_;
};

}  // namespace kv::host
