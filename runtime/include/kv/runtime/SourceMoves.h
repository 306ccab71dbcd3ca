#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kv::runtime {

class MovedTables;

/// A file or folder that tables read, and what to read instead.
struct SourceMove {
  std::string from;
  std::string to;
};

/// Redirects the arrays in a saved file to other files: during its lifetime, the tables that the
/// current session loads read `to` instead of `from`.
///
/// 1. `from` is a file of a table, as an absolute path, as a path relative to the working
///    directory, or as it was given when the table was made; or a folder with files of a table.
/// 2. If `to` is a folder, each file is replaced by the file of the same name in it; if `from` is a
///    folder, too, by the file with the same path below it. Otherwise `to` is a file or a pattern,
///    and its files replace all files that `from` denotes.
/// 3. Each `from` is a path in the saved file, even if another move leads to it.
///
/// A table keeps the types of its columns. If all its files are replaced, columns may have been
/// added, removed or reordered; otherwise the new files must have the columns of the others.
///
/// Errors:  of the load: "KALVEX:datastore:FileNotFound", "KALVEX:datastore:NoFiles",
///          "KALVEX:datastore:DifferentColumns", and others of reading a header.
/// Lives:   as long as the session; one at a time.
/// Threads: that of the session.
class SourceMoves {
 public:
  /// Errors: "KALVEX:datastore:SourceGivenTwice" when two moves have the same `from`, also if it is
  ///         written in two ways; with it and both `to`.
  explicit SourceMoves(std::vector<SourceMove> moves);
  ~SourceMoves();
  SourceMoves(const SourceMoves&) = delete;
  SourceMoves& operator=(const SourceMoves&) = delete;

  /// Errors: "KALVEX:datastore:UnknownSource" with the first `from` that no table read, and the
  ///         files that were read.
  void throwIfUnused() const;

  /// To be called when a load has failed, since the load reports each failure of an object as a
  /// fault of the file: rethrows the failure of other data that was to be read. Errors: those of
  /// the load.
  void rethrowFailure() const;

 private:
  std::unique_ptr<MovedTables> tables_;
};

}  // namespace kv::runtime
