// The heap decides by counts, and a count that is wrong shows much later, as a leak or a use after
// free. So the stress mode counts everything a second time, from the references themselves, after
// each collection, and stops at the first difference. It also holds the edges against what the
// native properties enumerate, which the collector itself never calls.

#include "heap/HeapVerifier.h"

namespace kv::host {

template <class Visit>
void HeapVerifier::forEachObject(Visit visit) const {
  for (const SlabPtr& slab : heap_.slabs_) {
    slab->forEachUsed(visit);
  }
}

template <class Visit>
void HeapVerifier::forEachPayload(Visit visit) const {
  for (const bool isOutside : {true, false}) {
    const ReferencePayload* payload =
        isOutside ? heap_.queue_->outsidePayloads() : heap_.queue_->insidePayloads();
    for (; payload != nullptr; payload = payload->nextListed) {
      visit(*payload, isOutside);
    }
  }
}

std::vector<std::string> HeapVerifier::run() {
  std::size_t live = 0;
  forEachObject([&](const Object* object) {
    countFrom(*object);
    live += object->isDeleted() ? 0u : 1u;
  });
  forEachPayload([this](const ReferencePayload& payload, bool) { countFrom(payload); });
  if (live != heap_.live_) {
    broken_.push_back("the heap counts " + std::to_string(heap_.live_) + " live objects and has " +
                      std::to_string(live));
  }
  forEachObject([this](Object* object) {
    checkObject(*object);
    checkAdopted(*object);
    checkProperties(*object);
  });
  forEachPayload([this](const ReferencePayload& payload, bool isOutside) {
    checkPayload(payload, isOutside);
  });
  return std::move(broken_);
}

void HeapVerifier::countFrom(const Object& object) {
  object.edges_.forEach([this](const Object* child) { ++held_[child]; });
  if (const ObjectExtension* extension = object.extension_.get()) {
    for (const kxArray* value : extension->slots) {
      countFrom(value);
    }
    for (const kxArray* array = extension->adopted; array != nullptr; array = array->next) {
      countFrom(array);
    }
  }
}

void HeapVerifier::countFrom(const ReferencePayload& payload) {
  if (payload.kind == PayloadKind::Objects) {
    for (const Object* object : static_cast<const ObjectsPayload&>(payload).objects) {
      if (object != nullptr) {
        ++held_[object];
      }
    }
  } else if (payload.kind != PayloadKind::Function) {
    for (const kxArray* element : static_cast<const ContainerPayload&>(payload).elements) {
      countFrom(element);
    }
  }
}

void HeapVerifier::countFrom(const kxArray* inside) {
  if (inside == nullptr) {
    return;
  }
  if (inside->form == kxArray::Form::Object) {
    ++held_[inside->object];
  } else if (const ReferencePayload* payload = inside->referencePayload();
             payload != nullptr && !inside->isOutside()) {
    ++insideArrays_[payload];
  }
}

void HeapVerifier::report(const Object& object, const std::string& what) {
  broken_.push_back("an object of class " + std::string(object.objectClass().getName()) + " " +
                    what);
}

void HeapVerifier::checkObject(const Object& object) {
  if (const std::uint32_t counted = held_[&object]; counted != object.heldCount_) {
    report(object, "counts " + std::to_string(object.heldCount_) + " inside holds and has " +
                       std::to_string(counted));
  }
  if (!object.isDeleted() && (object.flags_ & Object::kContentsGone) != 0) {
    report(object, "isn't deleted and has lost its contents");
  }
  if (object.isDeleted() && !object.hasRunningMember() &&
      (object.flags_ & (Object::kContentsGone | Object::kQueued)) == 0) {
    report(object, "is deleted and still has its contents");
  }
}

void HeapVerifier::checkAdopted(const Object& object) {
  const kxArray* previous = nullptr;
  const kxArray* array = object.extension_ != nullptr ? object.extension_->adopted : nullptr;
  for (; array != nullptr; previous = array, array = array->next) {
    if (array->parent != &object || array->previous != previous || !array->isInside) {
      report(object, "has an adopted array that doesn't know it");
    }
  }
}

void HeapVerifier::checkProperties(Object& object) {
  if (object.isDeleted() || object.isUnderConstruction() || object.instanceData_ == nullptr ||
      (object.flags_ & Object::kPartUnfinished) != 0) {
    return;
  }
  Counts<Object> links;
  const std::vector<const kcos::COSPropT*> properties = object.objectClass().nativeProperties();
  for (const kcos::COSPropT* property : properties) {
    if (property->flags() == kcos::COSPropT::kDerived) {
      continue;  // its value belongs to another object
    }
    const std::string name(property->getName().text());
    for (auto objects = property->getReferencedObjects(&object); objects.hasMore();) {
      ++links[Object::of(objects.next())];
    }
    for (auto arrays = property->getReferencedArrays(&object); arrays.hasMore();) {
      const kxArray* array = arrays.next();
      const bool isAdopted = array == nullptr || array->parent == &object;
      if (!isAdopted && kxHasRootRecord(array) && array->home() != nullptr) {
        report(object, "refers by " + name + " to an array that it didn't adopt");
      }
    }
  }
  if (!properties.empty()) {  // a class without properties doesn't report its links
    checkEdges(object, std::move(links));
  }
}

void HeapVerifier::checkEdges(const Object& object, Counts<Object> links) {
  Counts<Object> edges;
  object.edges_.forEach([&](const Object* child) {
    ++edges[child];
    links.try_emplace(child, 0);
  });
  for (const auto& [child, count] : links) {
    if (child != nullptr && !child->isDeleted() && edges[child] != count) {
      report(object, "has " + std::to_string(edges[child]) + " edges to an object of class " +
                         std::string(child->objectClass().getName()) + " and " +
                         std::to_string(count) + " links");
    }
  }
}

void HeapVerifier::checkPayload(const ReferencePayload& payload, bool isListedOutside) {
  const std::uint32_t arrays = payload.arrays.load(std::memory_order_relaxed);
  const std::uint32_t inside = insideArrays_[&payload];
  if (arrays != payload.outside + inside) {
    broken_.push_back("a payload has " + std::to_string(arrays) + " arrays, but " +
                      std::to_string(payload.outside) + " outside and " + std::to_string(inside) +
                      " inside");
  }
  if (isListedOutside != (payload.outside != 0)) {
    broken_.emplace_back("a payload is in the wrong list of roots");
  }
}

std::vector<std::string> Heap::verify() const {
  return queue_ != nullptr ? HeapVerifier(*this).run() : std::vector<std::string>();
}

}  // namespace kv::host
