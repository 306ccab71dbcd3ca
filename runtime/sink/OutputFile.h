#pragma once

#include <arrow/buffer.h>
#include <arrow/io/interfaces.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kv::runtime {

/// Errors: always "KALVEX:sink:CannotWrite" with the path, the reason and how many bytes of the
///         file were written; "KALVEX:sink:NoSpace" for the reason that there is no space.
[[noreturn]] void raiseCannotWrite(const std::string& path, int error, std::int64_t bytes);
[[noreturn]] void raiseCannotWrite(const std::string& path, std::string reason, std::int64_t bytes);

/// Whether a file is kept open while it is written. Of many files, each is opened for some bytes.
enum class OpenFile : std::uint8_t { Always, Seldom };

/// A new file, which Arrow's writers write to. It notes why it couldn't be written, which a status
/// of Arrow doesn't carry.
///
/// Threads: one at a time.
class OutputFile final : public arrow::io::OutputStream {
 public:
  /// `path`: in a staging folder; a file of that name is replaced, a link isn't followed.
  /// `target`: the user's path, for messages.
  /// Errors: as `raiseCannotWrite`.
  OutputFile(std::string path, std::string target, OpenFile open = OpenFile::Always);
  ~OutputFile() override;

  arrow::Status Write(const void* data, std::int64_t bytes) override;
  arrow::Status Flush() override;
  arrow::Status Close() override { return Flush(); }
  arrow::Result<std::int64_t> Tell() const override { return bytes_; }
  bool closed() const override { return false; }

  std::int64_t bytes() const { return bytes_; }

  /// Errors: as `raiseCannotWrite`.
  void put(std::string_view bytes);

  /// Overwrites bytes at the beginning, which were written before.
  void putFirst(std::string_view bytes);

  /// Appends bytes [first, last) of the file at `path`; all of it without them.
  /// Errors: as `raiseCannotWrite`.
  void append(const std::string& path, std::int64_t first, std::int64_t last);
  void append(const std::string& path);

  /// Makes sure that all bytes are on the disk.
  void sync();

  /// Turns a status of Arrow's writer into an exception.
  /// Errors: as `raiseCannotWrite`; std::bad_alloc; "KALVEX:memory:TextTooLarge".
  void check(const arrow::Status& status) const;

  template <class T>
  T checked(arrow::Result<T> result) const {
    check(result.status());
    return *std::move(result);
  }

 private:
  template <class Call>
  auto withFile(int flags, Call&& call);
  arrow::Status failed(int error);
  arrow::Status writeOut(const char* data, std::int64_t bytes);

  std::string path_;
  std::string target_;
  OpenFile open_;
  int file_ = -1;
  std::int64_t onDisk_ = 0;
  int error_ = 0;
  std::int64_t bytes_ = 0;
  std::shared_ptr<arrow::Buffer> waiting_;  ///< small writes, joined
  std::int64_t waitingBytes_ = 0;
};

}  // namespace kv::runtime
