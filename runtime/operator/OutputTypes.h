#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// The rows of a partition that a function was given: ordinals [first, last), counted from 0.
struct GivenRows {
  std::int64_t partition = 0;
  std::int64_t first = 0;
  std::int64_t last = 0;

  /// The rows of a chunk, which may have gaps.
  static GivenRows of(const Chunk& chunk);

  /// "partition 2, rows 1 to 3", counted from 1.
  std::string describe() const;
};

/// The types of what a user's function has returned so far, output by output. A type counts from
/// the first result with rows on; each later one must have it too, and the same dimensions after
/// the first.
class OutputTypes {
 public:
  struct Seen {
    ArrayType type{};
    GivenRows rows;
  };

  /// Notes that the function was called.
  void noteCall() { wasCalled_ = true; }
  bool wasCalled() const { return wasCalled_; }

  /// Records what the function of the step `label` returned as output `output` for some rows.
  /// Errors: "KALVEX:array:ChunkTypes" with the label, and both types and rows, if the type isn't
  ///         that of an earlier result; "KALVEX:array:ChunkSizes" with both sizes.
  void add(std::string_view label, std::size_t output, const ArrayType& type,
           const GivenRows& rows);

  /// By output; none for an output without rows so far.
  const std::vector<std::optional<Seen>>& seen() const { return seen_; }

 private:
  bool wasCalled_ = false;
  std::vector<std::optional<Seen>> seen_;
};

}  // namespace kv::runtime
