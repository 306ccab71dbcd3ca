#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>

#include "kv/host/values.h"

/// Object arrays: their elements, and where an object is among others.
namespace kv::runtime {

/// Element `index` of an object array, as a scalar.
inline host::Value elementOf(const kxArray* objects, std::size_t index) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(objects, index)));
}

/// Numbers for objects, by identity: ids of objects may be shared.
class ObjectNumbers {
 public:
  ObjectNumbers() = default;
  /// The elements of an object array, each by its index.
  explicit ObjectNumbers(const kxArray* objects) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(objects); ++i) {
      add(kcos::omGetArrayElement(objects, i), i);
    }
  }

  /// An object that has a number keeps it.
  void add(const kcos::COSInterface* object, std::size_t number) {
    numbers_.emplace(object, number);
  }

  std::optional<std::size_t> of(const kcos::COSInterface* object) const {
    const auto found = numbers_.find(object);
    return found == numbers_.end() ? std::nullopt : std::optional(found->second);
  }
  /// Of a scalar object.
  std::optional<std::size_t> of(const kxArray* scalar) const {
    return of(kcos::omGetArrayElement(scalar, 0).get());
  }

 private:
  std::unordered_map<const kcos::COSInterface*, std::size_t> numbers_;
};

}  // namespace kv::runtime
