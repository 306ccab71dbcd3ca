// When a saved file is opened with other data, the paths in it come from a file that may be
// hostile. So a path only serves to decide which move applies and which name to look for inside the
// folder that the user named; a path that would lead out of that folder is never opened.

#include "persistence/MovedTables.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/PathExpansion.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

using Move = MovedTables::Move;
using Source = MovedTables::Source;

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
  explicit Replacement(const FileDatastore& saved) : saved_(saved) {}

  /// Replaces the file at position `index` of the saved table.
  void add(std::vector<Move>& moves, std::size_t index) {
    for (Move& move : moves) {
      if (const auto name = nameIn(move, saved_.table().files[index])) {
        move.isUsed = true;
        return replace(move, *name);
      }
    }
    places_.push_back({&saved_, index});
    isAnyKept_ = true;
  }

  const std::vector<std::string>& newPaths() const { return newPaths_; }

  /// `others`: the files at newPaths().
  std::vector<FileDatastore::FileOf> files(const FileDatastore& others) const {
    std::vector<FileDatastore::FileOf> files = places_;
    for (FileDatastore::FileOf& each : files) {
      each.source = each.source == nullptr ? &others : each.source;
    }
    return files;
  }
  bool isAnyKept() const { return isAnyKept_; }

  /// The name of a table of new files only.
  std::string newName() const {
    std::vector<std::string> paths;
    for (const Move* move : used_) {
      paths.push_back(move->said.to);
    }
    return tableName(paths, newPaths_.size());
  }

 private:
  void replace(const Move& move, const std::string& name) {
    std::error_code ignored;
    const std::string& to = move.said.to;
    const bool isFirst = std::ranges::find(used_, &move) == used_.end();
    if (isFirst) {
      used_.push_back(&move);
    }
    if (fs::is_directory(to, ignored)) {
      addNew((fs::path(to) / name).string());
    } else if (isFirst) {
      for (const std::string& path : expandPath(to, {})) {
        addNew(path);
      }
    }
  }

  void addNew(const std::string& path) {
    places_.push_back({nullptr, newPaths_.size()});
    newPaths_.push_back(path);
  }

  const FileDatastore& saved_;
  std::vector<FileDatastore::FileOf> places_;  ///< of a new file, without its source
  std::vector<std::string> newPaths_;
  std::vector<const Move*> used_;
  bool isAnyKept_ = false;
};

/// The parts of a table that matter to moves: also its name and the paths as they were given, which
/// aren't part of its fingerprint.
std::vector<std::string> keyOf(const FileDatastore& source) {
  std::vector<std::string> key{source.fingerprint(), source.displayName()};
  for (const SourceFile& file : source.table().files) {
    key.push_back(file.path);
  }
  return key;
}

[[noreturn]] void throwTwice(const SourceMove& first, const SourceMove& second) {
  errors::raiseStep("KALVEX:datastore:SourceGivenTwice", {second.from, first.to, second.to});
}

Source replaceFiles(std::vector<Move>& moves, const Source& saved) {
  Replacement replacement(*saved);
  for (std::size_t i = 0; i < saved->table().files.size(); ++i) {
    replacement.add(moves, i);
  }
  const std::vector<std::string>& paths = replacement.newPaths();
  if (paths.empty()) {
    return saved;
  }
  const Source others = saved->openOthers(paths);
  if (replacement.isAnyKept()) {
    requireSameColumns(paths.front(), columnNames(others->schema()), saved->displayName(),
                       columnNames(saved->schema()));
  }
  return saved->withFiles(replacement.isAnyKept() ? saved->displayName() : replacement.newName(),
                          *others, replacement.files(*others));
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

Source MovedTables::moved(const Source& source) {
  for (const SourceFile& file : source->table().files) {
    filesMet_.insert(file.absolutePath);
  }
  const std::vector<std::string> key = keyOf(*source);
  const auto known = known_.find(key);
  if (known != known_.end()) {
    return known->second;
  }
  try {
    return known_.emplace(key, replaceFiles(moves_, source)).first->second;
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
