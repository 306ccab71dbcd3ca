#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kv/host/values.h"
#include "kv/operand.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv {

/// The rows of arrays as far as they are known when these are recorded: those of a source, and the
/// conditions that filtered them. So arrays with different rows are refused where the user combines
/// them. A run compares the rows anyway, so that equal keys by chance do no harm.
///
/// Threads: any.
class RowSpace {
 public:
  /// The rows of a source. `key` identifies them, `name` is for messages.
  RowSpace(std::string_view key, std::string name, std::optional<std::int64_t> count);

  /// The rows of a source that isn't known: that of an opened array.
  explicit RowSpace(std::optional<std::int64_t> count);

  /// The rows of `input` for which `keep` is true.
  RowSpace(const RowSpace& input, const Array& keep);

  /// False if only a run can find out whether others are the same.
  bool isOfKnownSource() const { return isOfKnownSource_; }

  bool isSame(const RowSpace& other) const { return key_ == other.key_; }
  bool isOfSameSource(const RowSpace& other) const { return source_ == other.source_; }

  /// How many they are, once that is known.
  std::optional<std::int64_t> count() const;
  void setCount(std::int64_t count) const { count_ = count; }

  /// The metadata of a materialised value with these rows; null while their partitions aren't
  /// known. Threads: with the session leased.
  const kxArray* places() const { return places_.get(); }
  void setPlaces(host::Value metadata) const { places_ = std::move(metadata); }

  /// True if they are all rows of files.
  bool isOfFiles() const { return isOfFiles_ && filters_.empty(); }
  void setOfFiles() { isOfFiles_ = true; }

  std::size_t key() const { return key_; }
  const std::string& name() const { return name_; }
  /// The conditions of the last filters, at most `kMostFilters`.
  const std::vector<Array>& filters() const { return filters_; }

  static constexpr std::size_t kMostFilters = 8;

 private:
  std::size_t source_;
  std::size_t key_;
  bool isOfKnownSource_ = true;
  bool isOfFiles_ = false;
  std::string name_;
  std::vector<Array> filters_;
  mutable std::atomic<std::int64_t> count_{-1};
  mutable host::Value places_;
};

/// What is known of an array's rows and values when it is recorded.
struct RowTraits {
  bool isScalar = false;
  bool isColumn = false;
  std::shared_ptr<const RowSpace> rows{};  ///< null for a scalar, and if they aren't known
  std::size_t made = 0;  ///< the same for arrays that are made in the same way; 0: not known
  std::vector<std::int64_t> trailing{};  ///< dimensions after that of rows

  /// The type that the column of a source has there, if it is read as another one; else null.
  std::shared_ptr<const std::string> sourceType{};
};

/// Those of what `function` computes row by row from `inputs`, of which `arrays` aren't constants.
/// Errors: those of requireSameRows; "KALVEX:array:SizesDiffer".
RowTraits traitsOf(std::string_view function, std::span<const Operand> inputs,
                   std::span<const Array> arrays, const Where& where);

/// Those of what a user's function computes from `inputs`: no other array is made in the same way.
/// Errors: those of requireSameRows.
RowTraits traitsOfUnique(std::span<const Array> inputs, const Where& where);

/// Those of an aggregate of `input`, of all its elements if `isWhole`.
RowTraits traitsOfAggregate(std::string_view aggregate, const Array& input, bool isWhole);

/// Refuses arrays whose rows are known to differ.
/// Errors: "KALVEX:array:RowsDiffer", "KALVEX:array:DifferentSources" with the lines of both.
void requireSameRows(std::span<const Array> arrays, const Where& where);

/// Those of the rows of `input` for which `keep` is true.
/// Errors: those of requireSameRows.
RowTraits traitsOfFiltered(const Array& input, const Array& keep, const Where& where);

/// A key that no other array has.
std::size_t uniqueKey();

/// A key of `name` and of a part.
std::size_t keyOf(std::string_view name, std::size_t part);

}  // namespace kv
