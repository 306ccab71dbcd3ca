#pragma once

namespace kv::runtime {

/// How often reads in this thread may be repeated after a failure that may pass, such as a device
/// or a network that doesn't answer at once; in force for the span of its life. Without one, no
/// read is repeated.
class ReadRetries {
 public:
  explicit ReadRetries(int most) noexcept;
  ~ReadRetries();
  ReadRetries(const ReadRetries&) = delete;
  ReadRetries& operator=(const ReadRetries&) = delete;

  /// True, and one retry less, if a read that failed with `error`, an `errno`, may be repeated.
  static bool take(int error) noexcept;

 private:
  int left_;
  ReadRetries* outer_;
};

}  // namespace kv::runtime
