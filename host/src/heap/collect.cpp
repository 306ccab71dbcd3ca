// When to collect, and the collection itself: mark what roots reach (Marker), then sweep. It runs
// at safe points only: when an object is created, when a session is entered from outside and on
// request; never while something is being destroyed. A collection is due when as much was created
// as was live after the last one, in objects and bytes together, so that its cost is a constant for
// each object created, whatever the size of the heap.

#include <algorithm>
#include <chrono>
#include <string>

#include "foundation/diag.h"
#include "heap/Array.h"
#include "heap/Heap.h"
#include "heap/Marker.h"
#include "heap/Teardown.h"

namespace kv::host {

namespace {

/// Below these a collection isn't worth its time; above, one is due when as much was created as is
/// live.
constexpr double kLeastObjects = 16 * 1024;
constexpr double kLeastBytes = 64.0 * 1024 * 1024;

double share(std::uint64_t created, std::uint64_t live, double least) {
  return static_cast<double>(created) / std::max(static_cast<double>(live), least);
}

}  // namespace

bool Heap::isDue() const noexcept {
  return createdSinceCollection_ + bytesSinceCollection_ / 4096 >= 4096 &&
         share(createdSinceCollection_, liveAfterCollection_, kLeastObjects) +
                 share(bytesSinceCollection_, bytesAfterCollection_, kLeastBytes) >=
             1.0;
}

void Heap::safePoint() {
  if (Teardown::isRunning()) {
    return;
  }
  dropWaiting();
  if (options_.stress) {
    collect();
    stopIfBroken();
  } else if (isDue()) {
    collect();
  }
}

void Heap::dropWaiting() noexcept {
  if (!queue_->hasDropped() || Teardown::isRunning()) {
    return;
  }
  Heap* previous = setCurrent(this);
  {
    const Teardown::Pause pause;  // its end destroys what was dropped
    for (kxArray* array = queue_->takeDropped(); array != nullptr;) {
      kxArray* next = std::exchange(array->next, nullptr);
      delete array;
      array = next;
    }
  }
  setCurrent(previous);
}

std::size_t Heap::collect() noexcept {
  if (queue_ == nullptr || Teardown::isRunning()) {
    return 0;
  }
  Heap* previous = setCurrent(this);
  const auto start = std::chrono::steady_clock::now();
  dropWaiting();
  const std::size_t liveBefore = live_;
  ++epoch_;
  Marker marker(*this);
  marker.markFrom(*this);
  sweep();
  releaseEmptySlabs();
  ++counters_.collections;
  counters_.visited += marker.visited();
  counters_.freedByCollector += liveBefore - live_;
  counters_.payloadBytes += bytesSinceCollection_;
  createdSinceCollection_ = bytesSinceCollection_ = 0;
  liveAfterCollection_ = live_;
  bytesAfterCollection_ =
      static_cast<std::uint64_t>(std::max<std::int64_t>(Pool::total(Counted::PayloadBytes), 0));
  counters_.collectorNanoseconds += static_cast<std::uint64_t>(
      std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count());
  setCurrent(previous);
  return liveBefore - live_;
}

void Heap::sweep() noexcept {
  const Teardown::Pause pause;  // all garbage is marked deleted before the first destructor runs
  for (const SlabPtr& owner : slabs_) {
    Slab& slab = *owner;
    slab.forEach([&slab](std::size_t word) { return slab.used[word] & ~slab.marked[word]; },
                 [this](Object* object) {
                   if (object->isDeleted()) {
                     freeIfUnreferenced(*object);
                   } else {
                     markDeleted(*object);
                     enqueue(*object);
                   }
                 });
  }
}

void Heap::stopIfBroken() const noexcept {
  const std::vector<std::string> broken = verify();
  if (!broken.empty()) {
    foundation::core::diag::terminate(broken.front().c_str(), __FILE__, __LINE__);
  }
}

}  // namespace kv::host
