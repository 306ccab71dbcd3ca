#pragma once

#include <concepts>
#include <cstddef>
#include <utility>

#include "kcos/interface.h"
#include "ki/detail/checkHandle.h"

namespace bigdata::ki {

/// The pointer that native code passes around: a native object with a strong reference to the host
/// object that owns it. For locals, arguments and results. A field of a managed object must be a
/// `PropertyPtr`, which the host's collector can see.
///
/// A pointer with neither part is the legal null. A pointer made from a deleted object has only the
/// reference, and using it raises an error.
template <class T>
class KalvexManagedPtr {
 public:
  KalvexManagedPtr() = default;
  KalvexManagedPtr(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
  KalvexManagedPtr(T* raw, kcos::COSInterface* interface)
      : raw_(raw), interface_(interface, kcos::COSReferenceType::Strong) {}
  KalvexManagedPtr(const KalvexManagedPtr&) = default;
  KalvexManagedPtr& operator=(const KalvexManagedPtr&) = default;
  KalvexManagedPtr(KalvexManagedPtr&& other) noexcept
      : raw_(std::exchange(other.raw_, nullptr)), interface_(std::move(other.interface_)) {}
  KalvexManagedPtr& operator=(KalvexManagedPtr&& other) noexcept {
    if (this != &other) {
      raw_ = std::exchange(other.raw_, nullptr);
      interface_ = std::move(other.interface_);
    }
    return *this;
  }
  ~KalvexManagedPtr() = default;

  /// The same object as one of a base class.
  template <class Derived>
    requires std::derived_from<Derived, T> && (!std::same_as<Derived, T>)
  KalvexManagedPtr(const KalvexManagedPtr<Derived>& other)  // NOLINT(google-explicit-constructor)
      : KalvexManagedPtr(other.raw(), other.interface()) {}

  /// The native object; null for the null pointer.
  /// Errors: "KALVEX:class:InvalidHandle" when the host object is gone.
  T* get() const {
    detail::checkHandle(raw_, interface_);
    return raw_;
  }

  /// Errors: "KALVEX:class:InvalidHandle", also for the null pointer.
  T& operator*() const {
    T* object = get();
    if (object == nullptr) {
      detail::raiseInvalidHandle();
    }
    return *object;
  }
  T* operator->() const { return &**this; }

  /// False for the null pointer only: a pointer to a deleted object isn't null.
  explicit operator bool() const noexcept { return raw_ != nullptr || interface_ != nullptr; }

  /// Unchecked; for comparing identity.
  T* raw() const noexcept { return raw_; }
  kcos::COSInterface* interface() const noexcept { return interface_; }

 private:
  T* raw_ = nullptr;
  kcos::COSInterfacePtr interface_{nullptr, kcos::COSReferenceType::Strong};
};

}  // namespace bigdata::ki
