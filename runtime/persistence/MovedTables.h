#pragma once

#include <exception>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kv/runtime/SourceMoves.h"
#include "source/csv/CsvDatastore.h"

namespace kv::runtime {

/// Replaces files of tables, as SourceMoves has it.
class MovedTables {
 public:
  struct Move {
    SourceMove said;
    std::string absoluteFrom;
    bool isUsed = false;
  };

  /// Errors: as SourceMoves.
  explicit MovedTables(std::vector<SourceMove> moves);

  /// A table that a file brought, with its files replaced.
  /// Errors: as SourceMoves.
  CsvDatastore::Table moved(const CsvDatastore::Table& table);

  /// Errors: as SourceMoves.
  void throwIfUnused() const;

  /// Rethrows what moved() threw, if it did.
  void rethrowFailure() const;

 private:
  std::vector<Move> moves_;
  std::set<std::string> filesMet_;
  std::exception_ptr failure_;
  /// By what identifies a table that the file brought, its name and its paths as they were given:
  /// equal tables stay equal, and their new files are looked at once.
  std::map<std::vector<std::string>, CsvDatastore::Table> known_;
};

}  // namespace kv::runtime
