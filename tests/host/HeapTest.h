#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "heap/Heap.h"
#include "kv/host/session.h"
#include "support/Worlds.h"

namespace kv::test {

using host::Heap;
using host::Object;
using host::Value;
using kcos::COSInterface;
using kcos::COSInterfacePtr;
using kcos::COSReferenceType;

inline kcos::COSInternedBase name(std::string_view text) {
  return kcos::internal::makeInterned(kcos::NameRef::of(text));
}

/// A class without members: no more than the heap needs of one.
class TestClass final : public host::ObjectClass {
 public:
  explicit TestClass(std::string_view className, std::size_t slots = 0) : id_(name(className)) {
    nativeChain_ = {id_};
    slotCount_ = slots;
  }

  /// Called by the destruction of a native part.
  std::function<void(void* part)> onDestroy = [](void*) {};

  kcos::COSInternedBase getClassId() const noexcept override { return id_; }
  bool isA(kcos::COSInternedBase className) const noexcept override { return className == id_; }
  void destroyInstanceData(void* part) const noexcept override { onDestroy(part); }
  std::vector<const kcos::COSPropT*> nativeProperties() const override { return properties; }
  kxArray* readProperty(Object&, kcos::COSInternedBase) const override { return nullptr; }

  std::vector<const kcos::COSMethodBase*> getMethods(kcos::COSInternedBase) const override {
    return {};
  }
  bool hasMethod(kcos::COSInternedBase) const override { return false; }
  void addSuperclass(kcos::COSInternedBase, int, int, int) override {}
  void addProperty(kcos::COSPropT*) override {}
  void addMethod(kcos::COSMethodBase*) override {}
  void declareMethod(kcos::COSInternedBase, kcos::MemberAccess) override {}
  void declareStaticMethod(kcos::COSInternedBase, kcos::MemberAccess) override {}
  void createInstance(COSInterfacePtr&) override {}
  void beginConstruction(COSInterfacePtr) override {}
  void endConstruction(COSInterfacePtr) override {}

  std::vector<const kcos::COSPropT*> properties;

 private:
  kcos::COSInternedBase id_;
};

inline void addEdge(COSInterface* parent, COSInterface* child) {
  kxAddParentRoot(kcos::omGetRootRecord(child), kcos::omGetRootRecord(parent));
}
inline void removeEdge(COSInterface* parent, COSInterface* child) {
  kxRemoveParentRoot(kcos::omGetRootRecord(child), kcos::omGetRootRecord(parent));
}

/// A cell of these values.
template <class... Values>
Value cellOf(Values... values) {
  std::vector<Value> elements;
  (elements.push_back(std::move(values)), ...);
  return host::makeCell(std::move(elements));
}

inline Value scalarOf(COSInterface* object) {
  return matrix::from_kalvex(
      kcos::omCreateKCOSScalar(COSInterfacePtr(object, COSReferenceType::Strong)));
}

/// An array that lives in a property of an object, as native parts keep them.
using PropertyArray = std::unique_ptr<kxArray, kcos::property_array_deleter>;

inline PropertyArray adopt(COSInterface* parent, Value value) {
  kcos::kcosConvertArrayToInternalInPlace(value.get(), false);
  kxSetArrayScope(value.get(), kxPropertyScope);
  if (kxHasRootRecord(value.get())) {
    kxSetParentRoot(kxGetRootRecordForArray(value.get()), kcos::omGetRootRecord(parent));
  }
  return PropertyArray(value.release());
}

/// A heap without a session, current for the test; at the end nothing may be left in the process.
class HeapTest : public testing::Test {
 protected:
  HeapTest() : before_(host::ledger()) { previous_ = Heap::setCurrent(&heap); }
  ~HeapTest() override {
    heap.close();
    Heap::setCurrent(previous_);
    const host::Ledger after = host::ledger();
    EXPECT_EQ(after.objects, before_.objects);
    EXPECT_EQ(after.arrays, before_.arrays);
    EXPECT_EQ(after.payloads, before_.payloads);
    EXPECT_EQ(after.payloadBytes, before_.payloadBytes);
  }

  COSInterfacePtr make() { return make(plain); }
  COSInterfacePtr make(TestClass& objectClass) {
    Object* object = heap.allocate(objectClass);
    COSInterfacePtr reference(object, COSReferenceType::Strong);
    heap.finishConstruction(*object);
    return reference;
  }
  static COSInterfacePtr weak(COSInterface* object) {
    return COSInterfacePtr(object, COSReferenceType::Weak);
  }
  static Object& in(const COSInterfacePtr& reference) { return *Object::of(reference.get()); }

  void expectSound() const { EXPECT_EQ(heap.verify(), std::vector<std::string>()); }

 private:
  host::Ledger before_;
  Heap* previous_ = nullptr;

 protected:
  TestClass plain{"test.Plain"};
  TestClass slotted{"test.Slotted", 2};
  Heap heap{{.stress = isStressed()}};
};

}  // namespace kv::test
