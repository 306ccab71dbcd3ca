#pragma once

#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kv/runtime/SourceMoves.h"
#include "source/FileDatastore.h"

namespace kv::runtime {

/// Replaces files of tables; see SourceMoves.
class MovedTables {
 public:
  struct Move {
    SourceMove said;
    std::string absoluteFrom;
    bool isUsed = false;
  };

  using Source = std::shared_ptr<const FileDatastore>;

  /// Errors: as SourceMoves.
  explicit MovedTables(std::vector<SourceMove> moves);

  /// A table from a file, with its files replaced.
  /// Errors: as for SourceMoves.
  Source moved(const Source& source);

  /// Errors: as for SourceMoves.
  void throwIfUnused() const;

  /// Rethrows the error that moved() threw, if any.
  void rethrowFailure() const;

 private:
  std::vector<Move> moves_;
  std::set<std::string> filesMet_;
  std::exception_ptr failure_;
  /// By what identifies a table in the file, its name and its paths as they were given: equal
  /// tables stay equal, and their new files are examined once.
  std::map<std::vector<std::string>, Source> known_;
};

}  // namespace kv::runtime
