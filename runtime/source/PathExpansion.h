#pragma once

#include <string>
#include <vector>

namespace kv::runtime {

/// The files that `path` stands for, sorted by name (as bytes) where it may stand for several.
///
/// 1. What exists under that very name is taken: a file is itself, a folder its `*.csv` files
///    (in any case of letters; hidden files and subfolders are left out).
/// 2. Otherwise a path with one of `*?[` is a pattern in the manner of the shell, for files of any
///    ending.
///
/// Errors: "KALVEX:datastore:FileNotFound" when there is no such path,
///         "KALVEX:datastore:NoFiles" when a folder or pattern yields no file,
///         "KALVEX:datastore:FileNotReadable" when a folder can't be read or a link not followed.
std::vector<std::string> expandPath(const std::string& path);

}  // namespace kv::runtime
