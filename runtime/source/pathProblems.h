#pragma once

#include <string>

struct stat;

namespace kv::runtime {

/// Errors: always "KALVEX:datastore:FileNotReadable" with path and reason.
[[noreturn]] void throwNotReadable(const std::string& path, const std::string& reason);

/// Reports why the file or folder at `path` can't be used, after a system call on it failed with
/// `error`, a value of errno.
///
/// Errors: always. "KALVEX:datastore:FileNotFound" if nothing has that name;
///         "KALVEX:datastore:FileNotReadable" for a dangling link, a loop of links, a parent folder
///         that may not be entered, or otherwise with the system's own reason. std::bad_alloc if
///         memory ran out.
[[noreturn]] void throwUnreachable(const std::string& path, int error);

/// Errors: "KALVEX:datastore:FileNotReadable" if `status` is that of a pipe, a device, a socket or
///         a folder: a source is read several times and must be a regular file.
void throwUnlessRegular(const std::string& path, const struct stat& status);

}  // namespace kv::runtime
