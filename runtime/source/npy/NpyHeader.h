#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kv/runtime/Chunk.h"
#include "source/SourceInput.h"

namespace kv::runtime {

/// How an element is written, and what it is read as.
struct NpyElement {
  ElementType type = ElementType::Double;
  std::int64_t bytes = 8;
  bool isSwapped = false;      ///< its bytes are in the order of other machines
  bool isHalf = false;         ///< a number of 16 bits, read as single
  std::int64_t timesUnit = 1;  ///< of times: microseconds = value * timesUnit / perMicrosecond
  std::int64_t perMicrosecond = 1;

  /// True if the bytes in the file are those of a column.
  bool isPlain() const;

  /// The element of NumPy's code, such as `<f8` or `<M8[ns]`; of type Unknown for another.
  static NpyElement of(const std::string& code);
};

/// What a `.npy` file says about its elements.
///
/// Source: https://numpy.org/doc/stable/reference/generated/numpy.lib.format.html, versions 1.0 to
/// 3.0.
struct NpyHeader {
  std::string code;  ///< of the elements, see NpyElement::of()
  bool isFortran = false;
  Dimensions shape;  ///< all dimensions
  std::int64_t dataStart = 0;

  /// Errors: "KALVEX:datastore:BadNpy" for a file in another format, elements or a number of
  ///         columns that can't be read, or fewer bytes than the elements need; as for SourceInput.
  static NpyHeader read(const SourceInput& input);
};

}  // namespace kv::runtime
