#include <stdexcept>

#include "CoreSession.h"
#include "PartitionMetadata.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/PropertyArrayPtr.h"
#include "ki/PropertyPtr.h"
#include "ki/createManagedObject.h"

namespace bigdata {

namespace {

using kv::host::makeDouble;

int made = 0;
int destroyed = 0;

/// A node that counts its instances. It may link to another, keep a value, and refuse construction.
class Node : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "test.Node";

  explicit Node(const ki::KalvexManagedConstructInfo& info) : KalvexManagedObject(info) { ++made; }
  Node(const ki::KalvexManagedConstructInfo& info, double fails) : Node(info) {
    if (fails != 0) {
      throw std::runtime_error("no node today");
    }
  }
  ~Node() { ++destroyed; }

  const ki::PropertyPtr<Node>& getNext() const { return next; }
  void setNext(const ki::KalvexManagedPtr<Node>& value) { next = {selfInterface(), value}; }
  const kxArray* getContent() const { return content.get(); }
  void setContent(matrix::ArrayPtr value) {
    content = ki::adoptPropertyArray(selfInterface(), std::move(value));
  }
  ki::KalvexManagedPtr<Node> nothing() { return nullptr; }
  void quiet() {}
  std::tuple<double, bool> pair() const { return {1.5, true}; }

  ki::PropertyPtr<Node> next;
  ki::PropertyArrayPtr content;
};

class NodeCosClassInfo final : public ki::KalvexManagedCosClassInfo<Node> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    ki::CosClassBuilder<Node>(cls)
        .constructor(ki::Access::Public)
        .constructor<double>(ki::Access::Public)
        .property("Next", &Node::getNext, &Node::setNext, ki::Access::Public, ki::Access::Public)
        .property("Content", &Node::getContent, &Node::setContent, ki::Access::Public,
                  ki::Access::Public)
        .readOnly("Derived", &Node::getContent, ki::Access::Public, ki::Access::Public)
        .method("nothing", &Node::nothing)
        .method("quiet", &Node::quiet)
        .method("pair", &Node::pair);
  }
};

using NodePtr = ki::KalvexManagedPtr<Node>;

class ManagedObjects : public CoreSession {
 protected:
  ManagedObjects() {
    session.load([] { kcos::omGetNamespace("test")->addClass(new NodeCosClassInfo, 0, 2); });
    made = destroyed = 0;
  }
  ~ManagedObjects() override { EXPECT_EQ(made, destroyed); }

  NodePtr node() { return ki::createManagedObject<Node>(); }
};

TEST_F(ManagedObjects, LiveAsLongAsSomebodyHoldsThem) {
  NodePtr a = node();
  NodePtr b = std::move(a);
  session.collect();
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(b->getSelf<Node>().get(), b.get());
  EXPECT_EQ(a.get(), nullptr);  // NOLINT(bugprone-use-after-move): it is null then
  EXPECT_FALSE(static_cast<bool>(a));
  EXPECT_EQ(errorOf([&] { a->quiet(); }), "KALVEX:class:InvalidHandle");
  b = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST_F(ManagedObjects, CyclesThroughPropertiesAndValuesAreCollected) {
  {
    const NodePtr a = node();
    a->setNext(node());
    a->getNext()->setNext(a);
    std::vector<Value> elements;
    elements.push_back(ki::toArray(a));
    a->setContent(kv::host::makeCell(std::move(elements)));
  }
  EXPECT_EQ(destroyed, 0);
  session.collect();
  EXPECT_EQ(destroyed, 2);
}

TEST_F(ManagedObjects, APropertyKeepsItsTargetAliveUntilItIsReset) {
  const NodePtr a = node();
  a->setNext(node());
  session.collect();
  EXPECT_EQ(destroyed, 0);
  a->setNext(nullptr);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(a->getNext().get(), nullptr);
}

TEST_F(ManagedObjects, AssigningAPropertyToItselfChangesNothing) {
  const NodePtr a = node();
  a->setNext(node());
  ki::PropertyPtr<Node>& same = a->next;
  a->next = std::move(same);
  session.collect();
  EXPECT_EQ(destroyed, 0);
  EXPECT_NE(a->getNext().get(), nullptr);
}

TEST_F(ManagedObjects, ADeletedTargetCanBeReadButNotUsed) {
  const NodePtr a = node();
  const NodePtr b = node();
  a->setNext(b);
  session.deleteObject(ki::toArray(b).get());
  EXPECT_EQ(destroyed, 1);
  EXPECT_TRUE(isSameObject(get(ki::toArray(a), "Next"), ki::toArray(b)));
  EXPECT_EQ(errorOf([&] { a->getNext().lock(); }), "KALVEX:class:InvalidHandle");
  EXPECT_EQ(errorOf([&] { a->setNext(b); }), "KALVEX:class:InvalidHandle");
  EXPECT_EQ(errorOf([&] { b.get(); }), "KALVEX:class:InvalidHandle");
  a->setNext(nullptr);
}

TEST_F(ManagedObjects, AFailingConstructorLeavesNothingBehind) {
  EXPECT_THROW(ki::createManagedObject<Node>(1.0), std::runtime_error);
  EXPECT_EQ(errorOf([&] { call("test.Node", makeDouble(1)); }),
            "KALVEX:NativeException | no node today");
  session.collect();
  EXPECT_EQ(made, 2);
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(session.liveObjects("test.Node"), 0u);
}

TEST_F(ManagedObjects, RegisteringTwiceDeletesTheFirst) {
  const NodePtr a = node();
  ki::TypeAwareKalvexManagedConstructInfo<Node> info(a.interface());
  const Node* second = new Node(info);
  info.release();
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(second->getSelf<Node>().get(), second);
}

TEST_F(ManagedObjects, AnAdoptedValueWithOtherOwnersIsASharedCopy) {
  const NodePtr a = node();
  const Value value = kv::host::makeString("content");
  kxAddReference(value.get());
  const kxArray* before = value.get();
  a->setContent(Value(value.get()));
  EXPECT_NE(a->getContent(), before);
  EXPECT_TRUE(kxIsSameValue(a->getContent(), before));
  EXPECT_EQ(kxGetReferenceCount(before), 0u);
}

TEST_F(ManagedObjects, ResultsReachTheHostByTheirNumber) {
  const Value a = call("test.Node");
  EXPECT_EQ(invoke(a, "nothing"), nullptr);
  EXPECT_EQ(invoke(a, "quiet"), nullptr);
  const std::vector<Value> both = session.invoke(a.get(), "pair", 2, {});
  EXPECT_EQ(kxGetScalar(both.at(0).get()), 1.5);
  EXPECT_TRUE(kv::host::toLogical(both.at(1).get()));
  EXPECT_EQ(kxGetScalar(invoke(a, "pair").get()), 1.5);
}

TEST_F(ManagedObjects, AnAssignmentThatReachesADerivedPropertyIsIgnored) {
  const Value a = call("test.Node");
  EXPECT_EQ(errorOf([&] { session.set(a.get(), "Derived", makeDouble(1).get()); }), "no error");
  EXPECT_EQ(get(a, "Derived"), nullptr);
}

TEST_F(ManagedObjects, PropertiesTellTheTracerWhatTheyReferTo) {
  const NodePtr a = node();
  const NodePtr b = node();
  a->setNext(b);
  a->setContent(makeDouble(3));
  const ki::detail::FixedTypeCosPropertyInfo<Node, const ki::PropertyPtr<Node>&, ki::detail::Ignore,
                                             decltype(&Node::getNext), std::nullptr_t>
      next({}, &Node::getNext, nullptr, ki::Access::Public, ki::Access::None, 0);
  auto objects = next.getReferencedObjects(a.interface());
  ASSERT_TRUE(objects.hasMore());
  EXPECT_EQ(objects.next(), b.interface());
  EXPECT_FALSE(objects.hasMore());
  EXPECT_THROW(objects.next(), kcos::ENoElements);
  EXPECT_FALSE(next.getReferencedObjects(b.interface()).hasMore());
  EXPECT_FALSE(next.getReferencedArrays(a.interface()).hasMore());

  const ki::detail::FixedTypeCosPropertyInfo<Node, const kxArray*, ki::detail::Ignore,
                                             decltype(&Node::getContent), std::nullptr_t>
      content({}, &Node::getContent, nullptr, ki::Access::Public, ki::Access::None, 0);
  auto arrays = content.getReferencedArrays(a.interface());
  ASSERT_TRUE(arrays.hasMore());
  EXPECT_EQ(arrays.next(), a->getContent());
  EXPECT_FALSE(content.getReferencedArrays(b.interface()).hasMore());
}

TEST_F(ManagedObjects, AWrongCountAtAFixedMethodEndsTheProcess) {
  EXPECT_DEATH(ki::detail::assertInputCount(3, 2),
               "bigdata/include/ki/detail/FixedTypeCosMethodInfo:72:.*"
               "nrhs == sizeof...\\(InputTypes\\)");
}

TEST(ClassRegistry, KeepsTheFirstOfTwoEntriesOfOneName) {
  const std::string name(PartitionMetadata::kHostClassName.text());
  const auto* first = ki::classRegistry().at(name);
  struct Impostor : ki::KalvexManagedCosClassInfo<PartitionMetadata> {
    void initializeClass(kcos::COSClass*, const kcos::COSClient*) override {}
  };
  const ki::ClassKcosRegistration<Impostor> second;
  EXPECT_EQ(ki::classRegistry().at(name), first);
}

}  // namespace
}  // namespace bigdata
