#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "kcos/interned.h"
#include "kv/host/export.h"
#include "kx/array.h"

namespace kv::host {
class Heap;
}

namespace kcos {

class COSClass;

enum class COSReferenceType : std::uint8_t {
  Strong = 0,     ///< keeps the host object alive
  Accounted = 1,  ///< the collector accounts for it through the root records
  Weak = 2,       ///< a back-reference
};

/// A host object: of a class, with property slots and at most one native part.
///
/// It is deleted explicitly or by the collector; its storage stays readable, and `isDeleted()`
/// true, while a reference of any kind exists.
///
/// Threads: the thread of its session.
class COSInterface {
 public:
  bool isDeleted() const noexcept { return (flags_ & kDeletedFlag) != 0; }

  /// The native part, viewed as the class named by `classKey`, which may be any native class in the
  /// object's chain; null if there is none or the key isn't in the chain.
  KV_HOST_API void* getInstanceData(COSInternedBase classKey) const noexcept;

  /// Stores the native part under the key of a native class of the chain; null clears it.
  KV_HOST_API void setInstanceData(COSInternedBase classKey, void* data);

  /// The most derived class. Lives: as long as the session.
  COSClass* getClassObject() const noexcept { return class_; }

  COSInterface(const COSInterface&) = delete;
  COSInterface& operator=(const COSInterface&) = delete;

 protected:
  static constexpr std::uint32_t kDeletedFlag = 1;

  explicit COSInterface(COSClass* objectClass) : class_(objectClass) {}
  ~COSInterface() = default;

  COSClass* class_;
  void* instanceData_ = nullptr;
  std::uint32_t strongCount_ = 0;   ///< references of type Strong
  std::uint32_t heldCount_ = 0;     ///< parent edges, slots and payload elements that refer to it
  std::uint32_t storageCount_ = 0;  ///< references of types Accounted and Weak
  std::uint32_t flags_ = 0;

 private:
  friend class COSInterfacePtr;

  void addReference(COSReferenceType type) noexcept {
    ++(type == COSReferenceType::Strong ? strongCount_ : storageCount_);
  }
  void removeReference(COSReferenceType type) noexcept {
    std::uint32_t& count = type == COSReferenceType::Strong ? strongCount_ : storageCount_;
    if (--count == 0) {
      lastReferenceGone();
    }
  }
  /// Frees the object if nothing holds it, and its storage if it is deleted and unreferenced.
  KV_HOST_API void lastReferenceGone() noexcept;
};

/// A counted reference to a host object, of one kind; null by default.
class COSInterfacePtr {
 public:
  COSInterfacePtr() = default;
  COSInterfacePtr(COSInterface* object, COSReferenceType type) noexcept
      : object_(object), type_(type) {
    acquire();
  }
  COSInterfacePtr(const COSInterfacePtr& other) noexcept
      : object_(other.object_), type_(other.type_) {
    acquire();
  }
  COSInterfacePtr(COSInterfacePtr&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)), type_(other.type_) {}
  COSInterfacePtr& operator=(const COSInterfacePtr& other) noexcept {
    COSInterfacePtr copy(other);
    swap(copy);
    return *this;
  }
  COSInterfacePtr& operator=(COSInterfacePtr&& other) noexcept {
    COSInterfacePtr taken(std::move(other));
    swap(taken);
    return *this;
  }
  /// Refers to `object` with the kind that this reference has.
  COSInterfacePtr& operator=(COSInterface* object) noexcept {
    COSInterfacePtr made(object, type_);
    swap(made);
    return *this;
  }
  ~COSInterfacePtr() { release(); }

  /// Releases the reference; null afterwards.
  void release() noexcept {
    if (COSInterface* object = std::exchange(object_, nullptr)) {
      object->removeReference(type_);
    }
  }
  void swap(COSInterfacePtr& other) noexcept {
    std::swap(object_, other.object_);
    std::swap(type_, other.type_);
  }

  COSReferenceType type() const noexcept { return type_; }
  COSInterface* get() const noexcept { return object_; }
  operator COSInterface*() const noexcept { return object_; }
  COSInterface* operator->() const noexcept { return object_; }

 private:
  void acquire() noexcept {
    if (object_) {
      object_->addReference(type_);
    }
  }

  COSInterface* object_ = nullptr;
  COSReferenceType type_ = COSReferenceType::Strong;
};

// Root records: the host's lifetime graph.

/// The node of an object, or of an array that refers to objects, in the lifetime graph.
/// Lives: as long as that object or array.
class RootRecordPtr {
 public:
  RootRecordPtr() = default;
  explicit RootRecordPtr(COSInterface* object) : object_(object) {}
  explicit RootRecordPtr(kxArray* array) : array_(array) {}

  COSInterface* object() const noexcept { return object_; }
  kxArray* array() const noexcept { return array_; }

 private:
  COSInterface* object_ = nullptr;
  kxArray* array_ = nullptr;
};

KV_HOST_API RootRecordPtr omGetRootRecord(const COSInterface* object) noexcept;

/// A scalar array that refers to the object. Null for null.
[[nodiscard]] KV_HOST_API kxArray* omCreateKCOSScalar(const COSInterfacePtr& object);

/// An object array of class `classKey` whose elements are null until they are set.
[[nodiscard]] KV_HOST_API kxArray* omCreateKCOSMatrix(std::size_t rows, std::size_t columns,
                                                      COSInternedBase classKey);

/// For the maker of an array that isn't shared yet.
KV_HOST_API void omSetArrayElement(kxArray* array, std::size_t index, COSInterface* object);

/// A strong reference to element `index` of an object array; null for an unset element, and where
/// there is no such array or element.
KV_HOST_API COSInterfacePtr omGetArrayElement(const kxArray* array, std::size_t index);

/// True for an object array.
KV_HOST_API bool omIsKCOS(const kxArray* array) noexcept;

}  // namespace kcos

/// True if the array can refer to objects: object array, cell, structure, function handle.
KV_HOST_API bool kxHasRootRecord(const kxArray* array) noexcept;
KV_HOST_API kcos::RootRecordPtr kxGetRootRecordForArray(kxArray* array) noexcept;

/// Records the edge from parent to child: child is reachable while parent is. The same edge made
/// twice is two edges. A cycle of edges that nothing outside reaches is garbage.
KV_HOST_API void kxAddParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent);

/// Withdraws one such edge. A deleted parent has none left, and nothing happens.
KV_HOST_API void kxRemoveParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent) noexcept;

/// Makes `parent`, an object, the one parent of an array that was converted for life in an object.
KV_HOST_API void kxSetParentRoot(kcos::RootRecordPtr arrayRecord, kcos::RootRecordPtr parent);

namespace kcos {

/// Prepares an array for life inside an object: from here on the array isn't an outside holder of
/// what it refers to. `flag` is false.
/// Errors: std::bad_alloc.
KV_HOST_API void kcosConvertArrayToInternalInPlace(kxArray* array, bool flag);

/// Memory for native parts, which are made and freed by the million: small blocks come from lists
/// of the calling thread. For class-level `operator new` and `operator delete`. Errors:
/// std::bad_alloc.
[[nodiscard]] KV_HOST_API void* utAllocatePart(std::size_t bytes);
/// `bytes` as given to `utAllocatePart`. Null does nothing.
KV_HOST_API void utFreePart(void* memory, std::size_t bytes) noexcept;

/// Deleter of an array that lives inside an object: withdraws it from its parent, then destroys it.
struct property_array_deleter {
  KV_HOST_API void operator()(kxArray* array) const noexcept;
};

}  // namespace kcos
