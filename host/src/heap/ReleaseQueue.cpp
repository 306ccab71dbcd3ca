// Arrays that refer to objects may be dropped on any thread, but only the thread of their session
// may change the heap. So an array that is dropped elsewhere is put in this queue, under a lock,
// and destroyed at the session's next safe point. After the session is closed there is no safe
// point any more: then the dropping thread destroys it at once, one thread at a time. The queue is
// counted, because values may outlive their session.

#include "heap/ReleaseQueue.h"

#include <utility>

#include "heap/Array.h"
#include "heap/Heap.h"
#include "heap/Teardown.h"

namespace kv::host {

namespace {

/// The closed session whose remaining arrays and objects this thread is destroying.
constinit thread_local const ReleaseQueue* tPosthumous = nullptr;

}  // namespace

/// Admits this thread to what remains of a closed session; other threads wait.
class ReleaseQueue::Posthumous {
 public:
  explicit Posthumous(ReleaseQueue& queue) noexcept
      : queue_(queue), lock_(queue.mutex_), outer_(std::exchange(tPosthumous, &queue)) {
    queue_.holds_.fetch_add(1, std::memory_order_relaxed);
  }
  ~Posthumous() {
    tPosthumous = outer_;
    lock_.unlock();
    queue_.release();
  }
  Posthumous(const Posthumous&) = delete;
  Posthumous& operator=(const Posthumous&) = delete;

 private:
  ReleaseQueue& queue_;
  std::unique_lock<std::recursive_mutex> lock_;
  const ReleaseQueue* outer_;
};

bool ReleaseQueue::isHere() const noexcept {
  const Heap* heap = Heap::current();
  return (heap != nullptr && heap->queue_ == this) || tPosthumous == this;
}

void ReleaseQueue::drop(kxArray* array) noexcept {
  {
    const std::lock_guard lock(mutex_);
    if (!closed_) {
      array->next = std::exchange(dropped_, array);
      waits_.store(true, std::memory_order_release);
      return;
    }
  }
  destroy(array);
}

void ReleaseQueue::destroy(kxArray* array) noexcept {
  {
    const Posthumous access(*this);
    const Teardown::Nested teardown;
    delete array;
  }
  Teardown::run();
}

kxArray* ReleaseQueue::takeDropped() noexcept {
  const std::lock_guard lock(mutex_);
  waits_.store(false, std::memory_order_relaxed);
  return std::exchange(dropped_, nullptr);
}

void ReleaseQueue::storageGone(Object& object) noexcept {
  const Posthumous access(*this);
  if (!object.isReferenced() && Slab::of(object).remove(object)) {
    object.~Object();
    Pool::count(Counted::Objects, -1);
    release();
  }
}

ReferencePayload*& ReleaseQueue::listOf(const ReferencePayload& payload) noexcept {
  return payload.outside != 0 ? outside_ : inside_;
}

void ReleaseQueue::link(ReferencePayload& payload) noexcept {
  ReferencePayload*& first = listOf(payload);
  payload.previousListed = nullptr;
  payload.nextListed = first;
  if (first != nullptr) {
    first->previousListed = &payload;
  }
  first = &payload;
}

void ReleaseQueue::unlink(ReferencePayload& payload) noexcept {
  if (payload.nextListed != nullptr) {
    payload.nextListed->previousListed = payload.previousListed;
  }
  (payload.previousListed != nullptr ? payload.previousListed->nextListed : listOf(payload)) =
      payload.nextListed;
}

void ReleaseQueue::enlist(ReferencePayload& payload) noexcept {
  holds_.fetch_add(1, std::memory_order_relaxed);
  payload.home = this;
  link(payload);
}

void ReleaseQueue::forget(ReferencePayload& payload) noexcept {
  unlink(payload);
  release();
}

void ReleaseQueue::addOutside(ReferencePayload& payload) noexcept {
  if (payload.outside != 0) {
    ++payload.outside;
    return;
  }
  unlink(payload);
  payload.outside = 1;
  link(payload);
}

void ReleaseQueue::removeOutside(ReferencePayload& payload) noexcept {
  if (payload.outside != 1) {
    --payload.outside;
    return;
  }
  unlink(payload);
  payload.outside = 0;
  link(payload);
}

void ReleaseQueue::inherit(std::vector<SlabPtr> slabs, std::size_t remaining) noexcept {
  {
    const std::lock_guard lock(mutex_);
    slabs_ = std::move(slabs);
    holds_.fetch_add(remaining, std::memory_order_relaxed);
    heap_ = nullptr;
    closed_ = true;
  }
  for (kxArray* array = takeDropped(); array != nullptr;) {
    kxArray* const next = std::exchange(array->next, nullptr);
    destroy(array);
    array = next;
  }
}

void ReleaseQueue::release(std::size_t holds) noexcept {
  if (holds_.fetch_sub(holds, std::memory_order_acq_rel) == holds) {
    delete this;
  }
}

}  // namespace kv::host
