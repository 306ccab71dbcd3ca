// When a saved file is opened with other data, the paths in it come from a file that may be
// hostile. So a path only serves to decide which move applies and which name to look for inside the
// folder that the user named; a path that would lead out of that folder is never opened.

#include "persistence/MovedTables.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/PathExpansion.h"
#include "source/csv/CsvSchema.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

using Move = MovedTables::Move;
using Table = CsvDatastore::Table;
using Files = std::vector<SourceFile>;

std::string joined(const std::vector<std::string>& texts) {
  return fmt::format("{}", fmt::join(texts, ", "));
}

std::string absoluteOf(const std::string& path) {
  std::string absolute = fs::absolute(path).lexically_normal().string();
  if (absolute.size() > 1 && absolute.ends_with('/')) {
    absolute.pop_back();
  }
  return absolute;
}

/// The path of a file relative to a folder; empty if it leads out of the folder or nowhere.
std::optional<std::string> inside(const fs::path& path) {
  const fs::path normal = path.lexically_normal();
  const bool isInside = normal.is_relative() && normal.has_filename() && normal != "." &&
                        *normal.begin() != ".." && normal.native().find('\0') == std::string::npos;
  return isInside ? std::optional(normal.string()) : std::nullopt;
}

/// The name of a file if the move applies to it: its file name, or its path below the folder.
///
/// A path in a saved file may be any text, and must not lead out of the folder that the user named.
std::optional<std::string> nameIn(const Move& move, const SourceFile& file) {
  const fs::path path = fs::path(file.absolutePath).lexically_normal();
  if (move.said.from == file.path || move.absoluteFrom == path) {
    return inside(path.filename());
  }
  const std::string folder = move.absoluteFrom + (move.absoluteFrom.ends_with('/') ? "" : "/");
  if (path.native().starts_with(folder)) {
    return inside(path.native().substr(folder.size()));
  }
  return std::nullopt;
}

/// Where the rows of one table come from when some of its files are replaced.
class Replacement {
 public:
  void add(std::vector<Move>& moves, const SourceFile& file) {
    for (Move& move : moves) {
      if (const auto name = nameIn(move, file)) {
        move.isUsed = true;
        return replace(move, *name);
      }
    }
    places_.push_back({file});
    isAnyKept_ = true;
  }

  std::vector<std::string> newPaths() const {
    std::vector<std::string> paths;
    for (const Place& place : places_) {
      if (!place.kept) {
        paths.push_back(place.newPath);
      }
    }
    return paths;
  }
  /// `newFiles`: the result of newPaths().
  Files files(const Files& newFiles) const {
    Files files;
    auto next = newFiles.begin();
    for (const Place& place : places_) {
      files.push_back(place.kept ? *place.kept : *next++);
    }
    return files;
  }
  bool isAnyKept() const { return isAnyKept_; }

  /// The sources of new files, from the moves.
  std::vector<std::string> sources() const {
    std::vector<std::string> sources;
    for (const Move* move : used_) {
      sources.push_back(move->said.to);
    }
    return sources;
  }

 private:
  struct Place {
    std::optional<SourceFile> kept{};
    std::string newPath{};
  };

  void replace(const Move& move, const std::string& name) {
    std::error_code ignored;
    const std::string& to = move.said.to;
    const bool isFirst = std::ranges::find(used_, &move) == used_.end();
    if (isFirst) {
      used_.push_back(&move);
    }
    if (fs::is_directory(to, ignored)) {
      places_.push_back({std::nullopt, (fs::path(to) / name).string()});
    } else if (isFirst) {
      for (std::string& path : expandPath(to)) {
        places_.push_back({std::nullopt, std::move(path)});
      }
    }
  }

  std::vector<Place> places_;
  std::vector<const Move*> used_;
  bool isAnyKept_ = false;
};

/// The parts of a table that matter to moves: also its name and the paths as they were given, which
/// aren't part of its fingerprint.
std::vector<std::string> keyOf(const Table& table) {
  std::vector<std::string> key{CsvDatastore(table).fingerprint(), table.name};
  for (const SourceFile& file : table.files) {
    key.push_back(file.path);
  }
  return key;
}

[[noreturn]] void throwTwice(const SourceMove& first, const SourceMove& second) {
  errors::raiseStep("KALVEX:datastore:SourceGivenTwice", {second.from, first.to, second.to});
}

Table replaceFiles(std::vector<Move>& moves, const Table& table) {
  Replacement replacement;
  for (const SourceFile& file : table.files) {
    replacement.add(moves, file);
  }
  const std::vector<std::string> paths = replacement.newPaths();
  if (paths.empty()) {
    return table;
  }
  Table moved = CsvDatastore(paths, {}).table();
  for (ColumnInfo& column : moved.schema) {
    const auto before = std::ranges::find(table.schema, column.name, &ColumnInfo::name);
    if (before != table.schema.end()) {
      column = *before;
    }
  }
  moved.name = joined(replacement.sources());
  if (replacement.isAnyKept()) {
    requireSameColumns(paths.front(), columnNames(moved.schema), table.name,
                       columnNames(table.schema));
    moved.name = table.name;
  } else if (paths.size() > 1) {
    moved.name += fmt::format(" ({} files)", paths.size());
  }
  moved.files = replacement.files(moved.files);
  return moved;
}

}  // namespace

MovedTables::MovedTables(std::vector<SourceMove> moves) {
  for (SourceMove& move : moves) {
    std::string absolute = absoluteOf(move.from);
    const auto same = std::ranges::find(moves_, absolute, &Move::absoluteFrom);
    if (same != moves_.end()) {
      throwTwice(same->said, move);
    }
    moves_.push_back({std::move(move), std::move(absolute), false});
  }
}

Table MovedTables::moved(const Table& table) {
  for (const SourceFile& file : table.files) {
    filesMet_.insert(file.absolutePath);
  }
  const std::vector<std::string> key = keyOf(table);
  const auto known = known_.find(key);
  if (known != known_.end()) {
    return known->second;
  }
  try {
    return known_.emplace(key, replaceFiles(moves_, table)).first->second;
  } catch (...) {
    failure_ = std::current_exception();
    throw;
  }
}

void MovedTables::rethrowFailure() const {
  if (failure_ != nullptr) {
    std::rethrow_exception(failure_);
  }
}

void MovedTables::throwIfUnused() const {
  const auto unused = std::ranges::find(moves_, false, &Move::isUsed);
  if (unused == moves_.end()) {
    return;
  }
  const std::vector<std::string> met(filesMet_.begin(), filesMet_.end());
  const std::string files = met.empty() ? "none" : errors::shownNames(met);
  errors::raiseStep("KALVEX:datastore:UnknownSource", {unused->said.from, files});
}

}  // namespace kv::runtime
