#include <cstdio>

#include "host/HeapTest.h"
#include "support/SmallStack.h"

namespace kv::test {

namespace {

class DeepHeapTest : public HeapTest {
 protected:
  void onSmallStackHere(const std::function<void()>& work) {
    runOnSmallStack([&] {
      Heap* previous = Heap::setCurrent(&heap);
      work();
      Heap::setCurrent(previous);
    });
  }

  const std::size_t depth = sizes().chain;
};

TEST_F(DeepHeapTest, ChainOfEdgesIsMarkedAndFreedWithoutRecursion) {
  onSmallStackHere([this] {
    COSInterfacePtr last = make();
    for (std::size_t i = 1; i < depth; ++i) {
      COSInterfacePtr next = make();
      addEdge(next, last);
      last = next;
    }
    EXPECT_EQ(heap.collect(), 0u);
    EXPECT_EQ(heap.liveObjects(), depth);
    last.release();
    EXPECT_EQ(heap.liveObjects(), 0u);
  });
  std::printf("chain of %zu objects on a stack of %zu KiB\n", depth, kSmallStackBytes / 1024);
}

TEST_F(DeepHeapTest, RingIsCollectedWithoutRecursion) {
  onSmallStackHere([this] {
    COSInterfacePtr first = make();
    COSInterfacePtr last = first;
    for (std::size_t i = 1; i < depth; ++i) {
      COSInterfacePtr next = make();
      addEdge(last, next);
      last = next;
    }
    addEdge(last, first);
    last.release();
    first.release();
    heap.collect();
    EXPECT_EQ(heap.liveObjects(), 0u);
  });
}

TEST_F(DeepHeapTest, NestedCellsAreFreedWithoutRecursion) {
  onSmallStackHere([this] {
    Value plainCell = cellOf(host::makeDouble(0));
    Value holding = cellOf(scalarOf(make()));
    for (std::size_t i = 1; i < depth; ++i) {
      plainCell = cellOf(std::move(plainCell));
      holding = cellOf(std::move(holding));
    }
    EXPECT_EQ(heap.collect(), 0u);
    plainCell.reset();
    holding.reset();
    EXPECT_EQ(heap.liveObjects(), 0u);
  });
}

TEST_F(DeepHeapTest, ChainThroughSlotsIsFreedWithoutRecursion) {
  onSmallStackHere([this] {
    COSInterfacePtr last = make(slotted);
    for (std::size_t i = 1; i < depth; ++i) {
      COSInterfacePtr next = make(slotted);
      heap.setSlot(in(next), i % 2, i % 3 == 0 ? cellOf(scalarOf(last)) : scalarOf(last));
      last = next;
    }
    last.release();
    EXPECT_EQ(heap.liveObjects(), 0u);
  });
}

TEST_F(DeepHeapTest, CallablesThatHoldCallablesAreFreedWithoutRecursion) {
  onSmallStackHere([this] {
    Value last = cellOf(scalarOf(make()));
    for (std::size_t i = 1; i < depth; ++i) {
      const auto held = std::make_shared<Value>(std::move(last));
      last = host::makeFunctionHandle("f", [held](const host::Call&) {});
    }
    last.reset();
    EXPECT_EQ(heap.liveObjects(), 0u);
  });
}

}  // namespace
}  // namespace kv::test
