#include "source/pathProblems.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <optional>
#include <system_error>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

std::string reasonOf(int error) { return std::generic_category().message(error); }

/// The fault of a link, if it can't be followed.
std::optional<std::string> problemOfLink(const fs::path& link) {
  std::error_code failure;
  if (!fs::is_symlink(fs::symlink_status(link, failure))) {
    return std::nullopt;
  }
  if (fs::exists(fs::status(link, failure))) {
    return std::nullopt;
  }
  if (failure == std::errc::too_many_symbolic_link_levels) {
    return fmt::format("the link '{}' leads into a loop of links", link.string());
  }
  std::error_code ignored;
  const std::string target = fs::read_symlink(link, ignored).string();
  if (failure == std::errc::no_such_file_or_directory) {
    return fmt::format("'{}' is a dangling link: there is no '{}'", link.string(), target);
  }
  return fmt::format("the link '{}' leads to '{}': {}", link.string(), target, failure.message());
}

/// The fault of the first part of the path that can't be passed.
std::optional<std::string> problemOnTheWay(const std::string& path) {
  fs::path walked;
  for (const fs::path& part : fs::path(path)) {
    const fs::path folder = walked.empty() ? fs::path(".") : walked;
    walked /= part;
    std::error_code failure;
    static_cast<void>(fs::symlink_status(walked, failure));
    if (failure == std::errc::permission_denied) {
      return fmt::format("the folder '{}' may not be entered (Permission denied)", folder.string());
    }
    if (failure == std::errc::not_a_directory) {
      return fmt::format("'{}' isn't a folder", folder.string());
    }
    if (auto problem = problemOfLink(walked)) {
      return problem;
    }
  }
  return std::nullopt;
}

}  // namespace

void throwNotReadable(const std::string& path, const std::string& reason) {
  errors::raiseStep("KALVEX:datastore:FileNotReadable", {path, reason});
}

void throwUnreachable(const std::string& path, int error) {
  if (error == ENOMEM) {
    throw std::bad_alloc();
  }
  const bool isOnTheWay = error == ENOENT || error == EACCES || error == ELOOP || error == ENOTDIR;
  if (const auto problem = isOnTheWay ? problemOnTheWay(path) : std::nullopt) {
    throwNotReadable(path, *problem);
  }
  if (error == ENOENT) {
    errors::raiseStep("KALVEX:datastore:FileNotFound", {path});
  }
  throwNotReadable(path, reasonOf(error));
}

void throwUnlessRegular(const std::string& path, const struct stat& status) {
  if (S_ISREG(status.st_mode)) {
    return;
  }
  const char* kind = S_ISDIR(status.st_mode)    ? "a folder"
                     : S_ISFIFO(status.st_mode) ? "a pipe"
                     : S_ISSOCK(status.st_mode) ? "a socket"
                                                : "a device";
  throwNotReadable(path, fmt::format("it is {}, and a source may be read several times; save what "
                                     "it gives in a file first",
                                     kind));
}

}  // namespace kv::runtime
