#pragma once

#include <new>
#include <utility>
#include <vector>

#include "kcos/class.h"

namespace bigdata::ki::detail {

/// An enumeration without elements.
template <class E>
class EmptyEnumerationUtil final : public kcos::EnumerationUtil<E> {
 public:
  bool hasMore() const override { return false; }
  E next() override { throw kcos::ENoElements(); }
};

/// An enumeration of one element.
template <class E>
class ScalarEnumerationUtil final : public kcos::EnumerationUtil<E> {
 public:
  explicit ScalarEnumerationUtil(E element) : element_(element) {}
  bool hasMore() const override { return pending_; }
  E next() override {
    if (!std::exchange(pending_, false)) {
      throw kcos::ENoElements();
    }
    return element_;
  }

 private:
  E element_;
  bool pending_ = true;
};

/// An enumeration of the elements of a list.
template <class E>
class VectorEnumerationUtil final : public kcos::EnumerationUtil<E> {
 public:
  explicit VectorEnumerationUtil(std::vector<E> elements) : elements_(std::move(elements)) {}
  bool hasMore() const override { return next_ < elements_.size(); }
  E next() override {
    if (!hasMore()) {
      throw kcos::ENoElements();
    }
    return elements_[next_++];
  }

 private:
  std::vector<E> elements_;
  std::size_t next_ = 0;
};

/// An in-memory source of elements, which the host can free.
template <class E, template <class> class Util, class... Arguments>
kcos::Enumeration<E> makeEnumeration(Arguments&&... arguments) {
  void* memory = kcos::utCalloc(sizeof(Util<E>));
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return kcos::Enumeration<E>(new (memory) Util<E>(std::forward<Arguments>(arguments)...));
}

}  // namespace bigdata::ki::detail
