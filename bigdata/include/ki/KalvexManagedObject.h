#pragma once

#include <cstddef>

#include "kcos/interface.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/hostClassName.h"

namespace bigdata::ki {

class KalvexManagedObject;

/// The context in which a native object is constructed. It knows the host object to attach to.
class KalvexManagedConstructInfo {
 public:
  virtual ~KalvexManagedConstructInfo();

  /// Attaches the object under construction. Result: the host object that now owns it.
  virtual kcos::COSInterface* registerManagedObject(KalvexManagedObject* object) const = 0;
};

/// Base of every native class that is also a class of the host. A native object lives inside a host
/// object, which owns it.
///
/// 1. Construction attaches the object; if a derived constructor throws, the context detaches it.
/// 2. The reference to the host object is weak: a strong one would be a cycle.
/// 3. Links to other managed objects are `PropertyPtr`s, host values `PropertyArrayPtr`s, so that
///    the host's collector sees every edge. A field is never a `KalvexManagedPtr`.
///
/// Threads: that of the session.
class KalvexManagedObject {
 public:
  KalvexManagedObject(const KalvexManagedObject&) = delete;
  KalvexManagedObject& operator=(const KalvexManagedObject&) = delete;

  /// Native parts come from the host's pool.
  static void* operator new(std::size_t bytes) { return kcos::utAllocatePart(bytes); }
  static void operator delete(void* memory, std::size_t bytes) noexcept {
    kcos::utFreePart(memory, bytes);
  }

  /// This object as the class `T` of its chain. Unchecked.
  template <class T>
  KalvexManagedPtr<T> getSelf() const {
    return {static_cast<T*>(selfInterface_->getInstanceData(classKey<T>())), selfInterface_};
  }

  /// The host object that owns this one. Lives: longer than this.
  kcos::COSInterface* selfInterface() const noexcept { return selfInterface_; }

 protected:
  explicit KalvexManagedObject(const KalvexManagedConstructInfo& info)
      : selfInterface_(info.registerManagedObject(this), kcos::COSReferenceType::Weak) {}
  ~KalvexManagedObject() = default;

 private:
  kcos::COSInterfacePtr selfInterface_;
};

}  // namespace bigdata::ki
