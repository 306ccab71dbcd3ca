#include "source/SourceFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <thread>

#include "kv/errors/StepError.h"
#include "source/pathProblems.h"

namespace kv::runtime {

namespace {

using std::chrono::nanoseconds;

/// If a file's time is later than now by more than this, it comes from another clock.
constexpr nanoseconds kLongestTick = std::chrono::milliseconds(50);

/// More attempts than a file needs that is written once; they are at least a millisecond apart.
constexpr int kMaxAttempts = 100;

nanoseconds sinceEpoch(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

/// True if a write in the same tick of the clock as the last one would leave the same time.
bool mayKeepItsTime(const struct stat& status, nanoseconds now) {
  const nanoseconds ahead = sinceEpoch(status.st_mtim) - now;
  return ahead >= nanoseconds(0) && ahead < kLongestTick;
}

std::int64_t modifiedTicks(const struct stat& status) {
  const std::chrono::sys_time<nanoseconds> time(sinceEpoch(status.st_mtim));
  return std::chrono::file_clock::from_sys(time).time_since_epoch().count();
}

struct stat statusOf(const std::string& path) {
  struct stat status {};
  while (::stat(path.c_str(), &status) != 0) {
    if (errno != EINTR) {
      throwUnreachable(path, errno);
    }
  }
  throwUnlessRegular(path, status);
  return status;
}

}  // namespace

nanoseconds SourceFile::timeOfWrites() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return sinceEpoch(now);
}

SourceFile SourceFile::stat(const std::string& path, Clock now) {
  struct stat status = statusOf(path);
  for (int attempts = 1; mayKeepItsTime(status, now()); ++attempts) {
    if (attempts == kMaxAttempts) {
      throwNotReadable(path, "it is being written; try again when it is complete");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    status = statusOf(path);
  }
  return {path, std::filesystem::absolute(path).lexically_normal().string(), status.st_size,
          modifiedTicks(status), false};
}

bool SourceFile::isAsNoted(const struct stat& status) const {
  return status.st_size == bytes && modifiedTicks(status) == modified;
}

void SourceFile::throwChanged() const {
  errors::raiseStep("KALVEX:datastore:SourceChanged",
                    {path, isFromSave ? "since it was saved with its array" : "since it was opened",
                     isFromSave ? "read it as a new table" : "open it again to read it"});
}

}  // namespace kv::runtime
