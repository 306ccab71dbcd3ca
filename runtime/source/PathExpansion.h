#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kv::runtime {

/// The files that `path` denotes, sorted by name (as bytes) if there may be several.
///
/// 1. If something with exactly that name exists, it is taken: a file itself, or the files of a
///    folder with one of `endings`, such as ".csv" (in any case of letters; without hidden files
///    and subfolders). The ending of CSV may be followed by one of a compression, such as ".gz".
/// 2. Otherwise a path with one of `*?[` is a shell pattern, for files with any extension.
///
/// Errors: "KALVEX:datastore:FileNotFound" if there is no such path,
///         "KALVEX:datastore:NoFiles" if a folder or pattern yields no file,
///         "KALVEX:datastore:TwoForms" if a folder has a file and its compressed form,
///         "KALVEX:datastore:FileNotReadable" if a folder can't be read or a link not followed.
std::vector<std::string> expandPath(const std::string& path,
                                    const std::vector<std::string_view>& endings);

}  // namespace kv::runtime
