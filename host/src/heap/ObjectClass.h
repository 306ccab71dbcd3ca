#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "kcos/class.h"

namespace kv::host {

class Object;

/// What the heap and the array functions need of a class. Class records implement it; every
/// `COSClass` of the host is one, so that an object's class is an `ObjectClass` without a cast that
/// could fail.
///
/// Owner / Lives: the session; longer than its heap.
class ObjectClass : public kcos::COSClass {
 public:
  /// True if `key` names a native class in the chain of this class: the native part of its objects
  /// can be viewed as that class.
  bool answersTo(kcos::COSInternedBase key) const noexcept {
    return std::find(nativeChain_.begin(), nativeChain_.end(), key) != nativeChain_.end();
  }

  /// Number of property slots of an object; the same for every object of the class.
  std::size_t slotCount() const noexcept { return slotCount_; }

  /// True if the class is, or inherits, `className`.
  virtual bool isA(kcos::COSInternedBase className) const noexcept = 0;

  /// Deletes the native part of an object that is already marked deleted. Never null.
  virtual void destroyInstanceData(void* data) const noexcept = 0;

  /// Native properties, inherited ones included; for the verifier of the heap alone.
  virtual std::vector<const kcos::COSPropT*> nativeProperties() const = 0;

  /// Property `name` of an object that isn't deleted, by the rights of public code; owned by the
  /// caller.
  /// Errors: "KALVEX:class:NoSuchMember", "KALVEX:class:AccessDenied"; those of a computed
  /// property.
  [[nodiscard]] virtual kxArray* readProperty(Object& object, kcos::COSInternedBase name) const = 0;

 protected:
  ~ObjectClass() = default;

  /// Filled by the class record before its first object is made: nearest native class first.
  std::vector<kcos::COSInternedBase> nativeChain_;
  std::size_t slotCount_ = 0;
};

}  // namespace kv::host
