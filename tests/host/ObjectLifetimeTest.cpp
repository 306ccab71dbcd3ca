#include <algorithm>
#include <chrono>
#include <cstdio>

#include "host/HeapTest.h"

namespace kv::test {

namespace {

class ObjectLifetimeTest : public HeapTest {
 protected:
  /// Gives the object a part whose destruction is counted.
  void givePart(const COSInterfacePtr& object) {
    plain.onDestroy = [this](void*) { ++destroyed; };
    object->setInstanceData(plain.getClassId(), this);
  }

  int destroyed = 0;
};

TEST_F(ObjectLifetimeTest, LastStrongReferenceFreesAtOnce) {
  COSInterfacePtr object = make();
  givePart(object);
  COSInterfacePtr second = object;
  object.release();
  EXPECT_EQ(heap.liveObjects(), 1u);
  second.release();
  EXPECT_EQ(heap.liveObjects(), 0u);
  EXPECT_EQ(destroyed, 1);
}

TEST_F(ObjectLifetimeTest, AccountedAndWeakReferencesKeepOnlyTheStorage) {
  for (const COSReferenceType type : {COSReferenceType::Accounted, COSReferenceType::Weak}) {
    COSInterfacePtr object = make();
    givePart(object);
    const COSInterfacePtr other(object, type);
    object.release();
    EXPECT_TRUE(other->isDeleted());
    EXPECT_EQ(other->getInstanceData(plain.getClassId()), nullptr);
    EXPECT_EQ(other->getClassObject(), &plain);
  }
  EXPECT_EQ(destroyed, 2);
}

TEST_F(ObjectLifetimeTest, SameChildTwiceIsTwoEdges) {
  const COSInterfacePtr parent = make();
  COSInterfacePtr child = make();
  const COSInterfacePtr seen = weak(child);
  addEdge(parent, child);
  addEdge(parent, child);
  child.release();
  removeEdge(parent, seen);
  heap.collect();
  EXPECT_FALSE(seen->isDeleted());
  removeEdge(parent, seen);
  EXPECT_TRUE(seen->isDeleted());
}

TEST_F(ObjectLifetimeTest, EdgesHoldWhateverTheirNumberAndOrderOfWithdrawal) {
  for (const std::size_t count : {0u, 1u, 2u, 3u, 9u, 10u, 16u, 17u, 33u, 34u, 40u, 100u}) {
    for (const bool newestFirst : {false, true}) {
      const COSInterfacePtr parent = make();
      std::vector<COSInterfacePtr> children;
      for (std::size_t i = 0; i < count; ++i) {
        const COSInterfacePtr child = make();
        addEdge(parent, child);
        children.push_back(weak(child));
      }
      expectSound();
      for (std::size_t i = 0; i < count; ++i) {
        COSInterface* child = children[newestFirst ? count - 1 - i : i];
        EXPECT_FALSE(child->isDeleted());
        removeEdge(parent, child);
        EXPECT_TRUE(child->isDeleted());
      }
      expectSound();
    }
  }
}

TEST_F(ObjectLifetimeTest, ParentOfManyReleasesThemInLinearTime) {
  const std::size_t count = sizes().children;
  const COSInterfacePtr parent = make();
  std::vector<COSInterfacePtr> children;
  for (std::size_t i = 0; i < count; ++i) {
    const COSInterfacePtr child = make();
    addEdge(parent, child);
    children.push_back(weak(child));
  }
  const auto start = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < count; i += 2) {
    removeEdge(parent, children[i]);
  }
  heap.deleteObject(in(parent));
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(heap.liveObjects(), 0u);
  std::printf("children released: %zu in %.3f s\n", count, seconds.count());
}

TEST_F(ObjectLifetimeTest, CycleIsGarbageOnceNothingOutsideReachesIt) {
  COSInterfacePtr a = make();
  const COSInterfacePtr seen = weak(a);
  {
    const COSInterfacePtr b = make();
    const COSInterfacePtr c = make();
    addEdge(a, b);
    addEdge(b, c);
    addEdge(c, a);
    addEdge(a, a);
  }
  EXPECT_EQ(heap.collect(), 0u);
  a.release();
  EXPECT_EQ(heap.collect(), 3u);
  EXPECT_TRUE(seen->isDeleted());
}

TEST_F(ObjectLifetimeTest, ObjectUnderConstructionIsARoot) {
  Object* made = heap.allocate(plain);
  { const COSInterfacePtr passing(made, COSReferenceType::Strong); }
  EXPECT_EQ(heap.collect(), 0u);
  heap.finishConstruction(*made);
  EXPECT_EQ(heap.liveObjects(), 0u);
}

TEST_F(ObjectLifetimeTest, FailedConstructionLeavesNothingBehind) {
  Object* made = heap.allocate(slotted);
  heap.setSlot(*made, 0, cellOf(scalarOf(make())));
  addEdge(made, make());
  addEdge(made, made);
  heap.abandonConstruction(*made);
  EXPECT_EQ(heap.liveObjects(), 0u);
}

TEST_F(ObjectLifetimeTest, DeleteIsVisibleAtOnceAndReleasesEdges) {
  const COSInterfacePtr parent = make();
  COSInterfacePtr child = make();
  const COSInterfacePtr seen = weak(child);
  addEdge(parent, child);
  child.release();
  givePart(parent);
  EXPECT_FALSE(seen->isDeleted());
  heap.deleteObject(in(parent));
  EXPECT_TRUE(parent->isDeleted());
  EXPECT_EQ(heap.liveObjects(), 0u);
  EXPECT_EQ(destroyed, 1);
  heap.deleteObject(in(parent));
  addEdge(parent, make());  // a deleted parent takes none
  EXPECT_EQ(heap.liveObjects(), 0u);
  EXPECT_TRUE(seen->isDeleted());
}

TEST_F(ObjectLifetimeTest, DeleteInsideMembersDestroysWhenTheLastReturns) {
  COSInterfacePtr object = make(slotted);
  slotted.onDestroy = [this](void*) { ++destroyed; };
  object->setInstanceData(slotted.getClassId(), this);
  heap.setSlot(in(object), 0, host::makeChars("kept while a member runs, and longer than a word"));
  {
    const host::MemberScope outer(heap, in(object));
    {
      const host::MemberScope inner(heap, in(object));
      heap.deleteObject(in(object));
      EXPECT_TRUE(object->isDeleted());
      object.release();  // the storage stays for the members
      heap.collect();
    }
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST_F(ObjectLifetimeTest, UnheldObjectWaitsForItsRunningMember) {
  COSInterfacePtr object = make();
  givePart(object);
  Object& running = in(object);
  heap.enterMember(running);
  object.release();
  EXPECT_TRUE(running.isDeleted());
  EXPECT_EQ(destroyed, 0);
  heap.leaveMember(running);
  EXPECT_EQ(destroyed, 1);
}

TEST_F(ObjectLifetimeTest, GarbageIsMarkedDeletedBeforeTheFirstDestructorRuns) {
  constexpr std::size_t kCount = 200;  // in several words of the bitmap
  std::vector<COSInterfacePtr> seen;
  {
    const COSInterfacePtr first = make();
    COSInterfacePtr last = first;
    for (std::size_t i = 0; i < kCount; ++i) {
      const COSInterfacePtr next = i + 1 < kCount ? make() : first;
      addEdge(last, next);
      last->setInstanceData(plain.getClassId(), this);
      seen.push_back(weak(last));
      last = next;
    }
  }
  bool allWereDeleted = true;
  plain.onDestroy = [&](void*) {
    ++destroyed;
    for (const COSInterfacePtr& object : seen) {
      allWereDeleted = allWereDeleted && object->isDeleted();
    }
  };
  EXPECT_EQ(heap.collect(), kCount);
  EXPECT_TRUE(allWereDeleted);
  EXPECT_EQ(destroyed, static_cast<int>(kCount));
}

/// A destructor takes itself back, links it, and makes, deletes and collects objects.
TEST_F(ObjectLifetimeTest, WhatADestructorBringsBackStaysDeleted) {
  COSInterfacePtr survivor = make();
  std::vector<COSInterfacePtr> broughtBack;
  {
    const COSInterfacePtr a = make();
    const COSInterfacePtr b = make();
    addEdge(a, b);
    addEdge(b, a);
    for (COSInterface* object : {a.get(), b.get()}) {
      object->setInstanceData(plain.getClassId(), object);
    }
  }
  plain.onDestroy = [&](void* part) {
    ++destroyed;
    auto* self = static_cast<COSInterface*>(part);
    broughtBack.emplace_back(self, COSReferenceType::Strong);
    addEdge(survivor, self);
    addEdge(make(), self);
    heap.deleteObject(in(broughtBack.back()));
    heap.collect();
  };
  EXPECT_EQ(heap.collect(), 2u);
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(heap.liveObjects(), 1u);
  expectSound();
  for (const COSInterfacePtr& object : broughtBack) {
    EXPECT_TRUE(object->isDeleted());
    EXPECT_EQ(object->getInstanceData(plain.getClassId()), nullptr);
  }
  broughtBack.clear();
  survivor.release();
  EXPECT_EQ(heap.liveObjects(), 0u);
}

TEST_F(ObjectLifetimeTest, EdgesToDeletedChildrenDoNotPileUp) {
  const COSInterfacePtr parent = make();
  for (std::size_t i = 0; i < 10 * host::Slab::kPlaces && !isStressed(); ++i) {
    const COSInterfacePtr child = make();
    addEdge(parent, child);
    heap.deleteObject(in(child));  // no one withdraws the edge of a deleted child
  }
  EXPECT_LT(host::ledger().objects, 100u);
  expectSound();
}

TEST_F(ObjectLifetimeTest, SlotsAndOwnedValueGoWithTheObject) {
  struct Counted final : host::NativeValue {
    explicit Counted(int& total) : count(total) { ++count; }
    ~Counted() override { --count; }
    int& count;
  };
  int values = 0;
  COSInterfacePtr object = make(slotted);
  heap.setSlot(in(object), 1, scalarOf(make()));
  heap.setNativeValue(in(object), std::make_unique<Counted>(values));
  heap.setNativeValue(in(object), std::make_unique<Counted>(values));
  EXPECT_EQ(values, 1);
  EXPECT_EQ(heap.collect(), 0u);
  expectSound();
  object.release();
  EXPECT_EQ(values, 0);
  EXPECT_EQ(heap.liveObjects(), 0u);
}

TEST_F(ObjectLifetimeTest, LiveObjectsAreCountedByExactClass) {
  const COSInterfacePtr a = make();
  const COSInterfacePtr b = make(slotted);
  const COSInterfacePtr c = make(slotted);
  heap.deleteObject(in(c));
  EXPECT_EQ(heap.liveObjects(plain), 1u);
  EXPECT_EQ(heap.liveObjects(slotted), 1u);
}

TEST_F(ObjectLifetimeTest, CollectionsCostAsMuchAsWasCreated) {
  std::vector<COSInterfacePtr> kept;
  for (std::size_t i = 0; i < sizes().recorded; ++i) {
    kept.push_back(make());
    if (i != 0) {
      addEdge(kept[i], kept[i - 1]);
    }
  }
  const Heap::Counters& counters = heap.counters();
  if (!isStressed()) {
    EXPECT_LE(counters.visited, 2 * sizes().recorded);
  }
  std::printf("created %zu, collections %llu, visited %llu, %.1f ns an object visited\n",
              sizes().recorded, static_cast<unsigned long long>(counters.collections),
              static_cast<unsigned long long>(counters.visited),
              static_cast<double>(counters.collectorNanoseconds) /
                  static_cast<double>(std::max<std::uint64_t>(counters.visited, 1)));
}

}  // namespace
}  // namespace kv::test
