#include "heap/Payload.h"

#include <cstdlib>
#include <new>

#include "heap/Array.h"
#include "heap/Heap.h"
#include "heap/ReleaseQueue.h"

namespace kv::host {

void Payload::charge(std::size_t more) noexcept {
  bytes += more;
  Pool::count(Counted::PayloadBytes, static_cast<std::int64_t>(more));
  if (Heap* heap = Heap::current()) {
    heap->chargeBytes(more);
  }
}

DataPayload::DataPayload(std::size_t dataBytes) : Payload(PayloadKind::Data), data(small) {
  if (dataBytes > sizeof(small)) {
    large = std::calloc(dataBytes, 1);
    if (large == nullptr) {
      throw std::bad_alloc();
    }
    data = large;
  }
  charge(dataBytes);
}

DataPayload::~DataPayload() { std::free(large); }

ReferencePayload::~ReferencePayload() {
  if (home != nullptr) {
    home->forget(*this);
  }
}

ContainerPayload::~ContainerPayload() {
  for (kxArray* element : elements) {
    matrix::destroyArray(element);
  }
}

ObjectsPayload::~ObjectsPayload() {
  for (Object* object : objects) {
    if (object != nullptr) {
      object->removeHold(Hold::Inside);
    }
  }
}

}  // namespace kv::host
