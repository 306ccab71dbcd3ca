#pragma once

#include <utility>

#include "kcos/interface.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/detail/checkHandle.h"

namespace bigdata::ki {

namespace detail {

/// Adds the edge from `owner` to `child` to the host's lifetime graph, unless the child is deleted.
void linkChild(kcos::COSInterface* owner, kcos::COSInterface* child);
/// Removes the edge. Not needed for a child that has been deleted since.
void unlinkChild(kcos::COSInterface* owner, kcos::COSInterface* child) noexcept;

}  // namespace detail

/// A field of a managed object that refers to another managed object. The host's collector knows
/// the edge from owner to target for as long as this field holds it.
///
/// Assignment: `field_ = {selfInterface(), value}` links the new target before it releases the old
/// one. Using a target that has been deleted raises an error.
template <class T>
class PropertyPtr {
 public:
  PropertyPtr() = default;

  /// Errors: "KALVEX:class:InvalidHandle" if `value` refers to a deleted object; no link is made.
  PropertyPtr(kcos::COSInterface* owner, const KalvexManagedPtr<T>& value)
      : PropertyPtr(value.get(), value.interface(), owner) {}

  PropertyPtr(T* raw, kcos::COSInterface* child, kcos::COSInterface* owner)
      : raw_(raw),
        child_(child, kcos::COSReferenceType::Accounted),
        owner_(owner, kcos::COSReferenceType::Weak) {
    detail::linkChild(owner_, child_);
  }

  PropertyPtr(PropertyPtr&& other) noexcept
      : raw_(std::exchange(other.raw_, nullptr)),
        child_(std::move(other.child_)),
        owner_(std::move(other.owner_)) {}

  PropertyPtr& operator=(PropertyPtr&& other) noexcept {
    if (this != &other) {
      reset();
      raw_ = std::exchange(other.raw_, nullptr);
      child_ = std::move(other.child_);
      owner_ = std::move(other.owner_);
    }
    return *this;
  }

  ~PropertyPtr() { reset(); }

  /// Removes the edge; empty afterwards.
  void reset() noexcept {
    detail::unlinkChild(owner_, child_);
    raw_ = nullptr;
    child_.release();
    owner_.release();
  }

  /// A strong pointer to the target; null for an empty property.
  /// Errors: "KALVEX:class:InvalidHandle" if the target was deleted.
  KalvexManagedPtr<T> lock() const { return {get(), child_}; }

  /// The target; null for an empty property.
  /// Errors: "KALVEX:class:InvalidHandle" if the target was deleted.
  T* get() const {
    detail::checkHandle(raw_, child_);
    return raw_;
  }

  /// Errors: "KALVEX:class:InvalidHandle", also for an empty property.
  T& operator*() const {
    T* object = get();
    if (object == nullptr) {
      detail::raiseInvalidHandle();
    }
    return *object;
  }
  T* operator->() const { return &**this; }

  explicit operator bool() const noexcept { return child_ != nullptr; }

  /// The target's host object, even if it was deleted; null for an empty property.
  const kcos::COSInterfacePtr& child() const noexcept { return child_; }

 private:
  T* raw_ = nullptr;
  kcos::COSInterfacePtr child_{nullptr, kcos::COSReferenceType::Accounted};
  kcos::COSInterfacePtr owner_{nullptr, kcos::COSReferenceType::Weak};
};

}  // namespace bigdata::ki
