#include "source/SourceInput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <utility>

#include "kv/errors/StepError.h"
#include "source/ReadRetries.h"
#include "source/pathProblems.h"

namespace kv::runtime {

namespace {

/// Repeats a system call as long as signals interrupt it.
template <class Call>
auto uninterrupted(Call&& call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) {
      return result;
    }
  }
}

bool areEqual(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// The status change time (ctime) can't be set, so it also differs if a writer restores the
/// modification time. It differs after a change of permissions or links as well, which can't be
/// distinguished from such a write.
bool isSameVersion(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         areEqual(a.st_mtim, b.st_mtim) && areEqual(a.st_ctim, b.st_ctim);
}

[[noreturn]] void throwNotOpened(const SourceFile& file, int error) {
  if (error != ENOENT && error != ENOTDIR) {
    throwUnreachable(file.isFromSave ? file.absolutePath : file.path, error);
  }
  if (!file.isFromSave) {
    file.throwChanged();
  }
  errors::raiseStep("KALVEX:datastore:SourceGone", {file.absolutePath});
}

}  // namespace

SourceInput::SourceInput(SourceFile file) : file_(std::move(file)) {
  // A pipe that has replaced the file must not keep the caller waiting for a writer.
  descriptor_ = uninterrupted(
      [&] { return ::open(file_.absolutePath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); });
  if (descriptor_ < 0) {
    throwNotOpened(file_, errno);
  }
  try {
    if (uninterrupted([&] { return ::fstat(descriptor_, &opened_); }) != 0) {
      throwUnreachable(file_.path, errno);
    }
    if (!file_.isAsNoted(opened_)) {
      file_.throwChanged();
    }
    throwUnlessRegular(file_.path, opened_);
  } catch (...) {
    ::close(descriptor_);
    throw;
  }
}

SourceInput::~SourceInput() { ::close(descriptor_); }

void SourceInput::readAt(std::int64_t offset, char* to, std::size_t bytes) const {
  assert(offset >= 0 && offset + static_cast<std::int64_t>(bytes) <= file_.bytes);
  std::size_t got = 0;
  while (got < bytes) {
    const auto part = uninterrupted([&] {
      return ::pread(descriptor_, to + got, bytes - got, offset + static_cast<off_t>(got));
    });
    if (part < 0 && ReadRetries::take(errno)) {
      continue;
    }
    if (part < 0) {
      throwUnreachable(file_.path, errno);
    }
    if (part == 0) {  // the file was cut in a way that its times don't show
      throwChangedMeanwhile();
    }
    got += static_cast<std::size_t>(part);
  }
  throwIfWritten();
}

void SourceInput::throwIfWritten() const {
  struct stat now {};
  if (uninterrupted([&] { return ::fstat(descriptor_, &now); }) != 0) {
    throwUnreachable(file_.path, errno);
  }
  if (!isSameVersion(now, opened_)) {
    throwChangedMeanwhile();
  }
}

void SourceInput::throwIfReplaced() const {
  struct stat now {};
  const int failure =
      uninterrupted([&] { return ::stat(file_.absolutePath.c_str(), &now); }) == 0 ? 0 : errno;
  const bool isGone = failure == ENOENT || failure == ENOTDIR;
  if (failure != 0 && !isGone) {
    throwUnreachable(file_.path, failure);
  }
  if (isGone || !isSameVersion(now, opened_)) {
    throwChangedMeanwhile();
  }
}

void SourceInput::throwChangedMeanwhile() const {
  errors::raiseStep("KALVEX:datastore:SourceChanged",
                    {file_.path, "while it was read (its contents, rights or links)",
                     "read it again when nothing changes it"});
}

}  // namespace kv::runtime
