#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "util/SessionSlot.h"

namespace bigdata::util {

/// An identifier that is unique across sessions and workers: the base of its factory and a count.
///
/// It reads as text. The text is made on demand, since most ids are never read. Equality and order
/// are those of the text, by UTF-16 code units. Empty by default.
class UniqueId {
 public:
  UniqueId() = default;
  /// An id from outside, such as that of a loaded object.
  explicit UniqueId(std::u16string text);

  std::u16string text() const;
  bool empty() const noexcept { return base_ == nullptr; }

  friend bool operator==(const UniqueId& a, const UniqueId& b);
  friend std::strong_ordering operator<=>(const UniqueId& a, const UniqueId& b);

 private:
  friend class UniqueIdFactory;
  using Base = std::shared_ptr<const std::u16string>;
  static constexpr std::uint64_t kNoNumber = 0;

  UniqueId(Base base, std::uint64_t number) : base_(std::move(base)), number_(number) {}

  Base base_;
  std::uint64_t number_ = kNoNumber;
};

/// Makes identifiers: prefix, "_", a UUID drawn once per factory, "_", and a count from 1.
///
/// Threads: that of the session.
class UniqueIdFactory {
 public:
  /// Errors: boost::uuids::entropy_error if the system gives no random bytes.
  explicit UniqueIdFactory(std::string_view prefix);

  UniqueId nextId() { return {base_, next_++}; }

 private:
  UniqueId::Base base_;
  std::uint64_t next_ = 1;
};

namespace detail {

/// Tag: the session's factory of the native class `T`.
template <class T>
struct UniqueIdFactoryStorage {};

}  // namespace detail

/// The next id of class `T` in this session. Ids begin with `T::kIdPrefix`.
template <class T>
UniqueId nextUniqueId() {
  using Tag = detail::UniqueIdFactoryStorage<T>;
  const auto makeFactory = [] { return UniqueIdFactory(T::kIdPrefix); };
  return sessionSlot<Tag, UniqueIdFactory>(makeFactory).nextId();
}

}  // namespace bigdata::util
