#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "heap/Object.h"
#include "heap/Payload.h"
#include "heap/Pool.h"
#include "kx/array.h"

/// The header of a value: class, dimensions, and where the elements are. One block of the pool.
///
/// 1. A single element of a numeric class, logical or char is in the header, and so is one object.
///    An array without elements has only its class. Everything else is in a payload.
/// 2. A header is inside if it was adopted into a property or is in a slot or a payload, otherwise
///    outside. An inside header with further owners counts as both.
/// 3. Outside headers are strong references of their object, or count in their payload; inside ones
///    hold what they refer to without making it a root.
class kxArray final : public kv::host::Pooled {
 public:
  enum class Form : std::uint8_t {
    Bare,     ///< nothing but `bareClass`: no elements, or one object that isn't set
    Scalar,   ///< `bits`
    Object,   ///< `object`, never null
    Payload,  ///< `payload`
  };

  kxArray(kxClassID id, std::size_t rowCount, std::size_t columnCount) noexcept
      : classId_(static_cast<std::uint8_t>(id)), extents{rowCount, columnCount}, bits(0) {
    kv::host::Pool::count(kv::host::Counted::Arrays, 1);
  }
  /// Releases the contents. Only for an array whose home is here; see `matrix::destroyArray`.
  ~kxArray();
  kxArray(const kxArray&) = delete;
  kxArray& operator=(const kxArray&) = delete;

  /// A header with the same contents, outside, with one owner.
  kxArray* share() const;

  // Contents. Each is set once, in an empty outside header.
  void putScalar(const void* element, std::size_t elementBytes) noexcept {
    form = Form::Scalar;
    std::memcpy(&bits, element, elementBytes);
  }
  void putPayload(kv::host::Payload* shared) noexcept;
  void putObject(kv::host::Object* scalar) noexcept;

  /// For the maker of a 1-by-1 object array; null leaves the element unset.
  void setScalarObject(kv::host::Object* scalar) noexcept;

  kxClassID classId() const noexcept { return static_cast<kxClassID>(classId_); }
  std::size_t rows() const noexcept { return extents[0]; }
  std::size_t columns() const noexcept { return extents[1]; }
  std::size_t elementCount() const noexcept { return extents[0] * extents[1]; }
  bool isOutside() const noexcept {
    return !isInside || moreOwners.load(std::memory_order_relaxed) != 0;
  }

  /// Moves the header inside, for a new holder that is its only owner, or back outside.
  void moveInside() noexcept;
  void moveOutside() noexcept;
  void addOwner() noexcept;
  /// Result: false, and nothing done, if the caller is the only owner.
  bool removeOwner() noexcept;

  const void* data() const noexcept {
    return form == Form::Scalar ? &bits : form == Form::Payload ? dataPayload()->data : nullptr;
  }
  /// The payload, where it can refer to objects; else null.
  kv::host::ReferencePayload* referencePayload() const noexcept {
    return form == Form::Payload && payload->kind >= kv::host::PayloadKind::Cell
               ? static_cast<kv::host::ReferencePayload*>(payload)
               : nullptr;
  }
  /// False where it doesn't, and never will: a payload that is shared doesn't change.
  bool mayReferToObjects() const noexcept {
    const kv::host::ReferencePayload* references = referencePayload();
    return references == nullptr || references->home != nullptr ||
           (references->kind != kv::host::PayloadKind::Function &&
            references->arrays.load(std::memory_order_relaxed) == 1);
  }
  kv::host::DataPayload* dataPayload() const noexcept {
    return static_cast<kv::host::DataPayload*>(payload);
  }
  /// The queue of the session that the contents belong to; null if any thread may drop them.
  kv::host::ReleaseQueue* home() const noexcept;

  /// Gives a payload its home when it first refers to an object.
  void settleIn(kv::host::ReleaseQueue* queue) noexcept;

  std::atomic<std::uint32_t> moreOwners{0};  ///< the array's own reference count
  std::uint8_t classId_;                     ///< a kxClassID
  Form form = Form::Bare;
  bool isInside = false;
  std::uint8_t scope = kxLocalScope;
  std::array<std::size_t, 2> extents;  ///< first dimension, product of the others
  union {
    std::uint64_t bits;
    kv::host::Object* object;
    kv::host::Payload* payload;
    const kcos::COSInternedBase::Entry* bareClass;  ///< of an object array
  };
  kv::host::Object* parent = nullptr;  ///< that adopted the array
  kxArray* previous = nullptr;  ///< links of the parent's list; `next` also of a release queue
  kxArray* next = nullptr;

 private:
  void addOutsideHold() noexcept;
  void removeOutsideHold() noexcept;
};

static_assert(sizeof(kxArray) <= 64, "a header is one block of the pool");
