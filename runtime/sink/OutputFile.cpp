// Arrow's writers make many small writes; they are joined here, so that the disk sees few large
// ones. An error of the system is kept: a status of Arrow has no room for its number.

#include "sink/OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "column/allocate.h"
#include "kv/errors/StepError.h"
#include "sink/retried.h"

namespace kv::runtime {

namespace {

constexpr std::int64_t kWaitingBytes = std::int64_t{256} << 10;
constexpr std::int64_t kSeldomBytes = std::int64_t{64} << 10;
constexpr mode_t kNewFileMode = 0666;

class InputFile {
 public:
  explicit InputFile(const std::string& path)
      : file_(retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW); })) {}
  ~InputFile() {
    if (file_ >= 0) {
      ::close(file_);
    }
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  int get() const { return file_; }

 private:
  int file_;
};

}  // namespace

void raiseCannotWrite(const std::string& path, std::string reason, std::int64_t bytes) {
  errors::raiseStep("KALVEX:sink:CannotWrite", {path, std::move(reason), fmt::format("{}", bytes)});
}

void raiseCannotWrite(const std::string& path, int error, std::int64_t bytes) {
  if (error == ENOSPC || error == EDQUOT) {
    errors::raiseStep("KALVEX:sink:NoSpace", {path, fmt::format("{}", bytes)});
  }
  raiseCannotWrite(path, std::generic_category().message(error), bytes);
}

/// Calls `call` with the file's descriptor; -1 if it can't be opened.
template <class Call>
auto OutputFile::withFile(int flags, Call&& call) {
  if (file_ < 0) {
    file_ = retried([&] {
      return ::open(path_.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, kNewFileMode);
    });
  }
  const auto result = file_ < 0 ? -1 : call();
  if (open_ == OpenFile::Seldom && file_ >= 0) {
    const int error = errno;
    ::close(std::exchange(file_, -1));
    errno = error;
  }
  return result;
}

OutputFile::OutputFile(std::string path, std::string target, OpenFile open)
    : path_(std::move(path)),
      target_(std::move(target)),
      open_(open),
      waiting_(allocateBuffer(open == OpenFile::Seldom ? kSeldomBytes : kWaitingBytes)) {
  if (withFile(O_CREAT | O_TRUNC, [] { return 0; }) != 0) {
    raiseCannotWrite(target_, errno, 0);
  }
}

OutputFile::~OutputFile() {
  if (file_ >= 0) {
    ::close(file_);
  }
}

arrow::Status OutputFile::Write(const void* data, std::int64_t bytes) {
  if (waitingBytes_ + bytes > waiting_->size()) {
    ARROW_RETURN_NOT_OK(Flush());
  }
  bytes_ += bytes;
  if (bytes > waiting_->size()) {
    return writeOut(static_cast<const char*>(data), bytes);
  }
  if (bytes > 0) {
    std::memcpy(waiting_->mutable_data() + waitingBytes_, data, static_cast<std::size_t>(bytes));
  }
  waitingBytes_ += bytes;
  return arrow::Status::OK();
}

arrow::Status OutputFile::Flush() {
  return writeOut(waiting_->data_as<char>(), std::exchange(waitingBytes_, 0));
}

arrow::Status OutputFile::writeOut(const char* data, std::int64_t bytes) {
  while (bytes > 0 && error_ == 0) {
    const ssize_t done = withFile(0, [&] {
      return retried(
          [&] { return ::pwrite(file_, data, static_cast<std::size_t>(bytes), onDisk_); });
    });
    if (done <= 0) {
      return failed(done == 0 ? EIO : errno);
    }
    data += done;
    bytes -= done;
    onDisk_ += done;
  }
  return error_ == 0 ? arrow::Status::OK() : failed(error_);
}

arrow::Status OutputFile::failed(int error) {
  error_ = error;
  return arrow::Status::IOError("sink");
}

void OutputFile::put(std::string_view bytes) {
  check(Write(bytes.data(), static_cast<std::int64_t>(bytes.size())));
}

void OutputFile::putFirst(std::string_view bytes) {
  check(Flush());
  const auto size = static_cast<ssize_t>(bytes.size());
  const ssize_t done = withFile(
      0, [&] { return retried([&] { return ::pwrite(file_, bytes.data(), bytes.size(), 0); }); });
  if (done != size) {
    raiseCannotWrite(target_, errno, bytes_);
  }
}

void OutputFile::append(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    raiseCannotWrite(target_, errno, bytes_);
  }
  append(path, 0, status.st_size);
}

void OutputFile::append(const std::string& path, std::int64_t first, std::int64_t last) {
  const InputFile input(path);
  if (input.get() < 0) {
    raiseCannotWrite(target_, errno, bytes_);
  }
  check(Flush());
  while (first < last) {
    const std::int64_t wanted = std::min(waiting_->size(), last - first);
    const ssize_t read = retried([&] {
      return ::pread(input.get(), waiting_->mutable_data(), static_cast<std::size_t>(wanted),
                     first);
    });
    if (read <= 0) {
      raiseCannotWrite(target_, read == 0 ? EIO : errno, bytes_);
    }
    check(writeOut(waiting_->data_as<char>(), read));
    first += read;
    bytes_ += read;
  }
}

void OutputFile::sync() {
  check(Flush());
  if (withFile(0, [&] { return retried([&] { return ::fsync(file_); }); }) != 0) {
    raiseCannotWrite(target_, errno, bytes_);
  }
}

void OutputFile::check(const arrow::Status& status) const {
  throwIfOutOfMemory(status);
  if (status.ok()) {
    return;
  }
  if (error_ != 0) {
    raiseCannotWrite(target_, error_, bytes_);
  }
  if (status.IsCapacityError()) {
    checkArrow(status);
  }
  raiseCannotWrite(target_, status.message(), bytes_);
}

}  // namespace kv::runtime
