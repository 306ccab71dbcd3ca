#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/OpSpec.h"
#include "engine/RowPlaces.h"
#include "kv/runtime/Chunk.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// One step of a stage.
struct StageStep {
  std::shared_ptr<const OpSpec> spec;
  std::vector<std::size_t> inputs;  ///< steps that stand before this one
};

/// Names of a table's columns that somebody asks for; every one once `all` is set.
struct ColumnNeeds {
  bool all = false;
  std::set<std::string> names{};

  void add(const ColumnNeeds& other);

  /// What is asked for of a source, in its order.
  std::vector<std::string> columnsOf(const Schema& schema) const;
};

/// What is asked of the result of each step by those behind it; columns that nobody asks for aren't
/// read.
/// Requires: each step stands behind its inputs.
std::vector<ColumnNeeds> columnNeeds(const std::vector<StageStep>& steps);

/// The steps between the reading of one source and the results of a pass over it, in an order in
/// which each stands behind its inputs; the last is the one of kind Outputs.
///
/// Immutable; refers to no host object; may be given to any number of workers.
class Stage {
 public:
  /// Works out which columns of the source are asked for.
  ///
  /// Requires: the order of steps above.
  /// Errors: "KALVEX:array:DifferentSources" with both names if steps read two sources.
  explicit Stage(std::vector<StageStep> steps);

  const std::vector<StageStep>& steps() const { return steps_; }

  /// The steps whose results the stage gives, in order.
  const std::vector<std::size_t>& outputs() const { return steps_.back().inputs; }

  /// The last step that reads the result of a step; the step itself if none does.
  std::size_t lastUse(std::size_t step) const { return lastUse_[step]; }

  bool readsSource() const { return source_ != nullptr; }

  /// Errors: "KALVEX:array:NeedsRows" if no step reads one.
  const Datastore& source() const;

  /// The first step that reads the source.
  std::size_t readStep() const { return readStep_; }

  /// Columns to read, in the order of the source's schema.
  const std::vector<std::string>& columns() const { return columns_; }

 private:
  void findLastUses();
  void findSource();
  void findColumns();

  std::vector<StageStep> steps_;
  std::vector<std::size_t> lastUse_;
  std::shared_ptr<const Datastore> source_;
  std::size_t readStep_ = 0;
  std::vector<std::string> columns_;
};

/// A value that is there before a pass, as a stage uses it.
struct StageInput {
  Column column;                              ///< of a value that isn't known to be rows
  std::shared_ptr<const RowPlaces> places{};  ///< of a value whose rows are those of a source
  Chunk rows{};                               ///< such a value, a column or a table
  std::string origin{};                       ///< what made it, for messages
  bool isOpaque = false;  ///< goes to users' functions as it is; `column` has no meaning
};

}  // namespace kv::runtime
