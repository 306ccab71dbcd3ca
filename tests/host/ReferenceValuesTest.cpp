#include <thread>

#include "host/HeapTest.h"

namespace kv::test {

namespace {

/// Values that hold objects: what keeps what alive, from where.
class ReferenceValuesTest : public HeapTest {
 protected:
  /// An object that only the value made of it holds.
  template <class MakeValue>
  Value valueOf(COSInterfacePtr& seen, MakeValue makeValue) {
    const COSInterfacePtr object = make();
    seen = weak(object);
    return makeValue(object);
  }

  using ValueMaker = std::function<Value(COSInterface*)>;

  static Value inMatrix(COSInterface* object) {
    Value array = matrix::from_kalvex(kcos::omCreateKCOSMatrix(3, 1, name("test.Plain")));
    kcos::omSetArrayElement(array.get(), 1, object);
    return array;
  }
  static Value inUnsetScalar(COSInterface* object) {
    Value array = matrix::from_kalvex(kcos::omCreateKCOSMatrix(1, 1, name("test.Plain")));
    kcos::omSetArrayElement(array.get(), 0, object);
    return array;
  }
  static Value inStructure(COSInterface* object) {
    const std::string_view fields[] = {"first", "second"};
    Value array = matrix::from_kalvex(kxCreateStructMatrix(2, 1, fields));
    kxSetField(array.get(), 1, "second", scalarOf(object).release());
    return array;
  }
  static Value deepInside(COSInterface* object) {
    return cellOf(cellOf(host::makeDouble(1), inStructure(object)), inMatrix(object));
  }

  static inline const std::pair<const char*, ValueMaker> kMakers[] = {
      {"scalar", [](COSInterface* object) { return scalarOf(object); }},
      {"scalar that was set", inUnsetScalar},
      {"matrix", inMatrix},
      {"cell", [](COSInterface* object) { return cellOf(scalarOf(object)); }},
      {"structure", inStructure},
      {"nested", deepInside},
  };
};

TEST_F(ReferenceValuesTest, OutsideValueIsARootUntilItsLastHeaderGoes) {
  for (const auto& [what, maker] : kMakers) {
    SCOPED_TRACE(what);
    COSInterfacePtr seen;
    Value first = valueOf(seen, maker);
    Value copy = matrix::sharedCopy(first.get());
    first.reset();
    heap.collect();
    EXPECT_FALSE(seen->isDeleted());
    kxAddReference(copy.get());
    Value secondOwner(copy.get());
    copy.reset();
    EXPECT_FALSE(seen->isDeleted());
    secondOwner.reset();
    EXPECT_TRUE(seen->isDeleted());
    expectSound();
  }
}

TEST_F(ReferenceValuesTest, AdoptedArrayLivesAndDiesWithItsParent) {
  for (const auto& [what, maker] : kMakers) {
    SCOPED_TRACE(what);
    COSInterfacePtr parent = make();
    COSInterfacePtr seen;
    PropertyArray property = adopt(parent, valueOf(seen, maker));
    heap.collect();
    expectSound();
    EXPECT_FALSE(seen->isDeleted());

    Value copy = matrix::sharedCopy(property.get());  // outside again, beside the adopted one
    parent.release();
    heap.collect();
    EXPECT_FALSE(seen->isDeleted());
    copy.reset();
    heap.collect();
    EXPECT_TRUE(seen->isDeleted());  // its storage is still good: the native part may drop it late
    property.reset();
  }
}

TEST_F(ReferenceValuesTest, CycleThroughAnAdoptedArrayOrASlotIsGarbage) {
  for (const auto& [what, maker] : kMakers) {
    SCOPED_TRACE(what);
    PropertyArray property;
    plain.onDestroy = [&](void*) { property.reset(); };
    COSInterfacePtr object = make();
    object->setInstanceData(plain.getClassId(), this);
    property = adopt(object, maker(object));
    object.release();
    EXPECT_EQ(heap.liveObjects(), 1u);
    EXPECT_EQ(heap.collect(), 1u);
    plain.onDestroy = [](void*) {};

    COSInterfacePtr slotOwner = make(slotted);
    heap.setSlot(in(slotOwner), 0, maker(slotOwner));
    slotOwner.release();
    EXPECT_EQ(heap.liveObjects(), 1u);
    EXPECT_EQ(heap.collect(), 1u);
  }
}

TEST_F(ReferenceValuesTest, SharedOwnersOfAnInsideArrayKeepItOutside) {
  COSInterfacePtr parent = make();
  COSInterfacePtr seen;
  PropertyArray property =
      adopt(parent, valueOf(seen, [](COSInterface* object) { return scalarOf(object); }));
  kxAddReference(property.get());
  Value owner(property.get());
  parent.release();
  heap.collect();
  EXPECT_FALSE(seen->isDeleted());
  property.reset();
  EXPECT_FALSE(seen->isDeleted());
  owner.reset();
  EXPECT_TRUE(seen->isDeleted());
}

TEST_F(ReferenceValuesTest, DroppedOnAnotherThreadWaitsForTheNextSafePoint) {
  for (const auto& [what, maker] : kMakers) {
    SCOPED_TRACE(what);
    COSInterfacePtr seen;
    Value value = valueOf(seen, maker);
    std::thread([&] { value.reset(); }).join();
    EXPECT_FALSE(seen->isDeleted());
    heap.safePoint();
    EXPECT_TRUE(seen->isDeleted());
    expectSound();
  }
}

TEST_F(ReferenceValuesTest, DroppedWhileAnotherHeapIsCurrentWaitsToo) {
  Heap other({.stress = false});
  COSInterfacePtr seen;
  COSInterfacePtr strong = make();
  const COSInterfacePtr strongSeen = weak(strong);
  Value value = valueOf(seen, deepInside);
  Heap* own = Heap::setCurrent(&other);
  value.reset();
  strong.release();
  EXPECT_FALSE(seen->isDeleted());
  Heap::setCurrent(own);
  heap.collect();
  EXPECT_TRUE(seen->isDeleted());
  EXPECT_TRUE(strongSeen->isDeleted());
}

TEST_F(ReferenceValuesTest, WhatOutlivesTheHeapIsDroppedOnAnyThread) {
  std::vector<Value> values;
  std::vector<COSInterfacePtr> references;
  for (const auto& entry : kMakers) {
    COSInterfacePtr seen;
    values.push_back(valueOf(seen, entry.second));
    references.push_back(seen);
    references.push_back(make());
  }
  const Value handle = host::makeFunctionHandle(
      "holder", [kept = std::make_shared<Value>(cellOf(scalarOf(make())))](const host::Call&) {});
  heap.close();
  for (const COSInterfacePtr& reference : references) {
    EXPECT_TRUE(reference->isDeleted());
  }
  std::thread([&] { values.clear(); }).join();
  references.clear();
}

TEST_F(ReferenceValuesTest, WhatAnotherThreadDropsWhileTheHeapClosesIsFreed) {
  std::vector<Value> values;
  for (const auto& entry : kMakers) {
    COSInterfacePtr seen;
    values.push_back(valueOf(seen, entry.second));
  }
  values.push_back(host::makeFunctionHandle(
      "holder", [kept = std::make_shared<Value>(cellOf(scalarOf(make())))](const host::Call&) {}));
  plain.onDestroy = [&](void*) { std::thread([&] { values.clear(); }).join(); };
  const COSInterfacePtr closing = make();
  closing->setInstanceData(plain.getClassId(), this);
  heap.close();
  EXPECT_TRUE(values.empty());
}

TEST_F(ReferenceValuesTest, CallableIsReleasedAfterTheSweep) {
  COSInterfacePtr seen;
  std::size_t liveAtRelease = 99;
  {
    COSInterfacePtr object = make(slotted);
    seen = weak(object);
    const std::shared_ptr<void> guard(nullptr, [&](void*) { liveAtRelease = heap.liveObjects(); });
    heap.setSlot(in(object), 0, host::makeFunctionHandle("f", [guard](const host::Call&) {}));
    heap.setSlot(in(object), 1, scalarOf(object));
    const COSInterfacePtr partner = make();
    addEdge(object, partner);
    addEdge(partner, object);
  }
  EXPECT_EQ(liveAtRelease, 99u);
  heap.collect();
  EXPECT_EQ(liveAtRelease, 0u);
  EXPECT_TRUE(seen->isDeleted());
}

TEST_F(ReferenceValuesTest, ArrayOfADeletedObjectStaysReadable) {
  const COSInterfacePtr object = make();
  const Value value = deepInside(object);
  heap.deleteObject(in(object));
  heap.collect();
  const kxArray* matrix = kxGetCell(value.get(), 1);
  EXPECT_TRUE(kcos::omGetArrayElement(matrix, 1)->isDeleted());
  EXPECT_EQ(kcos::omGetArrayElement(matrix, 0).get(), nullptr);
  EXPECT_EQ(kxGetClassName(matrix), "test.Plain");
}

TEST_F(ReferenceValuesTest, SameObjectIsTheSameValue) {
  const COSInterfacePtr object = make();
  const Value a = scalarOf(object);
  const Value b = scalarOf(object);
  const Value other = scalarOf(make());
  EXPECT_TRUE(kxIsSameValue(a.get(), b.get()));
  EXPECT_FALSE(kxIsSameValue(a.get(), other.get()));
  EXPECT_TRUE(kxIsA(a.get(), "test.Plain"));
  EXPECT_FALSE(kxIsA(a.get(), "test.Slotted"));
}

}  // namespace
}  // namespace kv::test
