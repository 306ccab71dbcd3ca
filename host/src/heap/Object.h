#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "heap/EdgeList.h"
#include "heap/ObjectClass.h"
#include "heap/Pool.h"
#include "kcos/interface.h"
#include "kv/host/values.h"

namespace kv::host {

class Heap;

/// What keeps an object: an outside header or a strong reference, which makes it a root; or an
/// edge, a slot or an element that refers to it.
enum class Hold { Outside, Inside };

/// What only some objects have: property slots, an owned C++ value, adopted arrays.
struct ObjectExtension : Pooled {
  explicit ObjectExtension(std::size_t slotTotal) : slots(slotTotal, nullptr) {}

  std::vector<kxArray*> slots;  ///< owned; inside arrays
  std::unique_ptr<NativeValue> value;
  kxArray* adopted = nullptr;  ///< first of a list through the headers; owned by native code
};

/// A host object as the heap sees it. 64 bytes, in a slab of its heap.
///
/// What an object holds (slots, edges, native part) is changed through its `Heap` only.
class Object final : public kcos::COSInterface {
 public:
  static Object* of(kcos::COSInterface* object) noexcept { return static_cast<Object*>(object); }
  static const Object* of(const kcos::COSInterface* object) noexcept {
    return static_cast<const Object*>(object);
  }

  ObjectClass& objectClass() const noexcept { return *static_cast<ObjectClass*>(class_); }
  bool isUnderConstruction() const noexcept { return (flags_ & kUnderConstruction) != 0; }
  void* instanceData() const noexcept { return instanceData_; }
  /// True for an object of a file that was loaded without trust.
  bool isUntrusted() const noexcept { return (flags_ & kUntrusted) != 0; }
  void markUntrusted() noexcept { flags_ |= kUntrusted; }

  void addHold(Hold how) noexcept { ++(how == Hold::Outside ? strongCount_ : heldCount_); }
  /// Deletes the object if nothing keeps it any more.
  void removeHold(Hold how) noexcept {
    std::uint32_t& count = how == Hold::Outside ? strongCount_ : heldCount_;
    if (--count == 0) {
      lastHoldGone();
    }
  }

 private:
  friend class Heap;
  friend class HeapVerifier;
  friend class Marker;
  friend class ReleaseQueue;
  friend class kcos::COSInterface;

  static constexpr std::uint32_t kUnderConstruction = 2;
  static constexpr std::uint32_t kQueued = 4;        ///< is in the heap's worklist
  static constexpr std::uint32_t kContentsGone = 8;  ///< native part, slots and value destroyed
  static constexpr std::uint32_t kUntrusted = 16;
  static constexpr std::uint32_t kPartUnfinished = 32;   ///< the native part's constructor runs
  static constexpr std::uint32_t kMemberUnit = 1u << 8;  ///< members that run, from this bit up

  explicit Object(ObjectClass& objectClass)
      : COSInterface(&objectClass), edges_(), extension_(nullptr) {}
  ~Object() = default;

  void lastHoldGone() noexcept;

  bool hasRunningMember() const noexcept { return flags_ >= kMemberUnit; }
  bool isHeld() const noexcept {
    return strongCount_ != 0 || heldCount_ != 0 || isUnderConstruction();
  }
  /// True if the storage is still needed; adopted arrays point to their parent.
  bool isReferenced() const noexcept {
    return isHeld() || storageCount_ != 0 ||
           (extension_ != nullptr && extension_->adopted != nullptr);
  }

  EdgeList edges_;
  std::unique_ptr<ObjectExtension> extension_;
};

static_assert(sizeof(Object) == 64, "an object is one cache line");

}  // namespace kv::host
