#pragma once

#include <concepts>
#include <type_traits>

#include "ki/KalvexManagedObject.h"
#include "ki/hostClassName.h"

namespace bigdata::ki {

/// The construction context of class `T` on one host object.
///
/// Unless `release` was called, the destructor detaches the native part from the host object, which
/// undoes the attachment when a constructor fails.
template <class T>
class TypeAwareKalvexManagedConstructInfo final : public KalvexManagedConstructInfo {
  static_assert(std::derived_from<T, KalvexManagedObject>,
                "only classes derived from KalvexManagedObject live in host objects");
  static_assert(!std::is_polymorphic_v<T> || std::has_virtual_destructor_v<T>,
                "a managed class with virtual operations needs a virtual destructor");

 public:
  explicit TypeAwareKalvexManagedConstructInfo(kcos::COSInterface* interface)
      : interface_(interface) {}
  TypeAwareKalvexManagedConstructInfo(const TypeAwareKalvexManagedConstructInfo&) = delete;
  TypeAwareKalvexManagedConstructInfo& operator=(const TypeAwareKalvexManagedConstructInfo&) =
      delete;
  ~TypeAwareKalvexManagedConstructInfo() override {
    if (interface_ != nullptr) {
      interface_->setInstanceData(classKey<T>(), nullptr);
    }
  }

  /// Stores `object` as the native part. A previous native part is deleted first.
  kcos::COSInterface* registerManagedObject(KalvexManagedObject* object) const override {
    const kcos::COSInternedBase key = classKey<T>();
    if (void* earlier = interface_->getInstanceData(key)) {
      interface_->setInstanceData(key, nullptr);
      delete static_cast<T*>(earlier);
    }
    interface_->setInstanceData(key, viewed(object));
    return interface_;
  }

  /// The construction succeeded: the host object owns the native part from now on.
  void release() noexcept { interface_ = nullptr; }

 private:
  /// Only the base of the object is constructed so far, so its dynamic type must not be checked.
  __attribute__((no_sanitize("vptr"))) static T* viewed(KalvexManagedObject* object) {
    return static_cast<T*>(object);
  }

  kcos::COSInterface* interface_;
};

}  // namespace bigdata::ki
