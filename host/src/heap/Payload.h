#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "heap/FunctionValue.h"
#include "heap/Pool.h"

namespace kv::host {

class Object;
class ReleaseQueue;

enum class PayloadKind : std::uint8_t { Data, Strings, Cell, Structure, Objects, Function };

/// What arrays share: the elements of a value. Immutable once it is shared.
///
/// Owner: its arrays, by count; the last one passes it to the teardown of its thread.
/// Threads: the count is atomic. Only its session's thread uses a payload with a `home`.
struct Payload {
  explicit Payload(PayloadKind payloadKind) : kind(payloadKind) {
    Pool::count(Counted::Payloads, 1);
  }
  virtual ~Payload() {
    Pool::count(Counted::Payloads, -1);
    Pool::count(Counted::PayloadBytes, -static_cast<std::int64_t>(bytes));
  }
  Payload(const Payload&) = delete;
  Payload& operator=(const Payload&) = delete;

  static void* operator new(std::size_t size) { return Pool::allocate(size); }
  static void operator delete(void* memory, std::size_t size) noexcept { Pool::free(memory, size); }

  /// Accounts for `more` bytes, in the ledger and towards the current heap's next collection.
  void charge(std::size_t more) noexcept;

  std::atomic<std::uint32_t> arrays{0};  ///< headers that share it
  PayloadKind kind;
  std::size_t bytes = 0;
  std::vector<std::size_t> dimensions;  ///< filled where there are more than two
  Payload* next = nullptr;  ///< link of the list it waits in: to be marked, or to be destroyed
};

/// Numbers, logicals, characters: own memory (zeros at first) or borrowed memory.
struct DataPayload final : Payload {
  /// Errors: std::bad_alloc.
  explicit DataPayload(std::size_t dataBytes);
  DataPayload(const void* borrowed, std::shared_ptr<const void> owner)
      : Payload(PayloadKind::Data), data(borrowed), keepAlive(std::move(owner)) {}
  ~DataPayload() override;

  bool isOwn() const noexcept { return data == small || large != nullptr; }

  const void* data;
  void* large = nullptr;
  std::shared_ptr<const void> keepAlive;
  alignas(16) std::byte small[64] = {};
};

struct StringsPayload final : Payload {
  explicit StringsPayload(std::size_t count) : Payload(PayloadKind::Strings), texts(count) {
    charge(count * sizeof(texts[0]));
  }

  std::vector<std::optional<std::u16string>> texts;
};

/// A payload that can refer to objects.
///
/// It gets a home when the first element that does so is set; from then on it is in one of two
/// lists of that heap: payloads with outside headers, and those without.
struct ReferencePayload : Payload {
  using Payload::Payload;
  ~ReferencePayload() override;

  ReleaseQueue* home = nullptr;
  std::uint32_t outside = 0;    ///< headers that make it a root; kept once it has a home
  std::uint32_t markEpoch = 0;  ///< the last collection that reached it
  ReferencePayload* previousListed = nullptr;
  ReferencePayload* nextListed = nullptr;
};

/// Elements of a cell, or of a structure (field by field for each element). They are inside arrays.
struct ContainerPayload : ReferencePayload {
  ContainerPayload(PayloadKind payloadKind, std::size_t count)
      : ReferencePayload(payloadKind), elements(count, nullptr) {
    charge(count * sizeof(kxArray*));
  }
  ~ContainerPayload() override;

  std::vector<kxArray*> elements;
};

struct StructPayload final : ContainerPayload {
  StructPayload(std::size_t count, std::vector<std::string> names)
      : ContainerPayload(PayloadKind::Structure, count * names.size()), fields(std::move(names)) {}

  std::vector<std::string> fields;
};

struct ObjectsPayload final : ReferencePayload {
  ObjectsPayload(std::size_t count, kcos::COSInternedBase objectClass)
      : ReferencePayload(PayloadKind::Objects), className(objectClass), objects(count, nullptr) {
    charge(count * sizeof(Object*));
  }
  ~ObjectsPayload() override;

  kcos::COSInternedBase className;
  std::vector<Object*> objects;
};

struct FunctionPayload final : ReferencePayload {
  explicit FunctionPayload(FunctionValue handle)
      : ReferencePayload(PayloadKind::Function), value(std::move(handle)) {}

  /// True if destroying it runs code that isn't the host's.
  bool isCallable() const noexcept { return value.body != nullptr; }

  FunctionValue value;
};

}  // namespace kv::host
