#pragma once

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <utility>
#include <vector>

#include "kcos/class.h"
#include "kx/array.h"

namespace kv::host {

/// The output slots of a raw call while it runs: null at first, and freed unless they are taken.
/// `Slot` is `kxArray*`, or `kcos::COSValue` for native methods. Up to five need no allocation.
template <class Slot>
class OutputSlots {
 public:
  /// max(nlhs, 1) slots, and `spare` more.
  explicit OutputSlots(int nlhs, std::size_t spare = 0)
      : slots_(static_cast<std::size_t>(std::max(nlhs, 1)) + spare) {}
  ~OutputSlots() {
    for (Slot& slot : slots_) {
      matrix::from_kalvex(arrayIn(slot));
    }
  }
  OutputSlots(const OutputSlots&) = delete;
  OutputSlots& operator=(const OutputSlots&) = delete;

  Slot* data() noexcept { return slots_.data(); }
  std::size_t size() const noexcept { return slots_.size(); }
  bool isSet(std::size_t index) noexcept { return arrayIn(slots_[index]) != nullptr; }

  /// The output, which the caller owns from now on; the slot is null afterwards.
  matrix::ArrayPtr take(std::size_t index) noexcept {
    return matrix::from_kalvex(std::exchange(arrayIn(slots_[index]), nullptr));
  }
  std::vector<matrix::ArrayPtr> takeAll() {
    std::vector<matrix::ArrayPtr> values(slots_.size());
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      values[i] = take(i);
    }
    return values;
  }

 private:
  static kxArray*& arrayIn(kxArray*& slot) noexcept { return slot; }
  static kxArray*& arrayIn(kcos::COSValue& slot) noexcept { return slot.array; }

  boost::container::small_vector<Slot, 5> slots_;
};

using RawOutputs = OutputSlots<kxArray*>;

}  // namespace kv::host
