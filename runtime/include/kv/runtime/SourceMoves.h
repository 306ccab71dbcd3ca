#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kv::runtime {

class MovedTables;

/// A file or folder that tables read, and what they are to read in its place.
struct SourceMove {
  std::string from;
  std::string to;
};

/// Lets the arrays in a saved file read other files than it says: while it lives, the tables that
/// the current session loads read `to` where they would read `from`.
///
/// 1. `from` is a file of a table, as an absolute path, as a path from the working directory, or as
///    it was given when the table was made; or a folder with files of a table.
/// 2. If `to` is a folder, each file is replaced by that of the same name in it; below it, if
/// `from`
///    is a folder. Otherwise all files that `from` means are replaced by those that `to` means, a
///    file or a pattern.
/// 3. Each `from` means what the saved file says, also where another move leads to it.
///
/// A table keeps the types of its columns. If all its files are replaced, columns may have been
/// added, left out and put in another order; else the new files have the columns of the others.
///
/// Errors:  of the load: DataError "KALVEX:datastore:FileNotFound", "KALVEX:datastore:NoFiles",
///          "KALVEX:datastore:DifferentColumns", and others of reading a header.
/// Lives:   as long as the session; one at a time.
/// Threads: that of the session.
class SourceMoves {
 public:
  /// Errors: DataError "KALVEX:datastore:SourceGivenTwice" when two moves have the same `from`,
  /// also
  ///         if it is written in two ways; with it and both `to`.
  explicit SourceMoves(std::vector<SourceMove> moves);
  ~SourceMoves();
  SourceMoves(const SourceMoves&) = delete;
  SourceMoves& operator=(const SourceMoves&) = delete;

  /// Errors: DataError "KALVEX:datastore:UnknownSource" with the first `from` that no table read,
  ///         and the files that were read.
  void throwIfUnused() const;

  /// To be called when a load has failed, which blames the file for each failure of an object in
  /// it: rethrows the failure of other data that was to be read. Errors: those of the load above.
  void rethrowFailure() const;

 private:
  std::unique_ptr<MovedTables> tables_;
};

}  // namespace kv::runtime
