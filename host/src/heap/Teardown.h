#pragma once

#include "heap/Payload.h"

namespace kv::host {

/// Destroys payloads and objects of a thread one after the other, so that however deeply values and
/// objects are nested, no destructor calls the next one.
///
/// Callables are released last, one by one: their destructors are code that isn't the host's and
/// may do anything.
class Teardown {
 public:
  /// Takes over a payload that no array shares any more.
  static void bury(Payload* payload) noexcept;

  /// Works off everything that waits on this thread; inside a teardown that runs, nothing: that one
  /// goes on until all is done.
  static void run() noexcept;

  /// True while payloads or objects of this thread are being destroyed.
  static bool isRunning() noexcept { return depth_ != 0; }

  /// Puts off all destruction on this thread to the end of its life.
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

  /// Works off only what was buried within its life, callables excepted, before it ends.
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
