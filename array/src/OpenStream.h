#pragma once

#include <memory>
#include <mutex>
#include <vector>

namespace kv {

/// A stream whose evaluation may be in progress.
class OpenStream {
 public:
  virtual ~OpenStream() = default;

  /// Ends the evaluation, and waits for that. Threads: any that doesn't lease the session.
  virtual void stopAndWait() noexcept = 0;
};

/// The streams of a session, which it ends before it is closed.
///
/// Threads: any.
class OpenStreams {
 public:
  void add(const std::shared_ptr<OpenStream>& stream) {
    const std::lock_guard lock(mutex_);
    std::erase_if(streams_, [](const auto& each) { return each.expired(); });
    streams_.push_back(stream);
  }

  void stopAll() noexcept {
    std::vector<std::weak_ptr<OpenStream>> streams;
    {
      const std::lock_guard lock(mutex_);
      streams.swap(streams_);
    }
    for (const auto& each : streams) {
      if (const auto stream = each.lock()) {
        stream->stopAndWait();
      }
    }
  }

 private:
  std::mutex mutex_;
  std::vector<std::weak_ptr<OpenStream>> streams_;
};

}  // namespace kv
