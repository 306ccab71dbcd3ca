#pragma once

#include <type_traits>

#include "kcos/class.h"
#include "ki/conversions.h"
#include "ki/detail/checkHandle.h"
#include "ki/detail/references.h"
#include "ki/hostClassName.h"

namespace bigdata::ki::detail {

/// The setter type of a property without a setter.
struct Ignore {};

/// A property of the native class `T`: a getter of `GetType` and, unless `SetType` is `Ignore`, a
/// setter.
template <class T, class GetType, class SetType, class Getter, class Setter>
class FixedTypeCosPropertyInfo final : public kcos::COSPropT {
 public:
  FixedTypeCosPropertyInfo(kcos::COSInternedBase name, Getter getter, Setter setter,
                           kcos::MemberAccess getAccess, kcos::MemberAccess setAccess,
                           unsigned flags)
      : COSPropT(name, getAccess, setAccess, flags),
        classKey_(ki::classKey<T>()),
        getter_(getter),
        setter_(setter) {}

  kxArray* get(kcos::COSInterface* object) const override {
    return matrix::to_kalvex(toArray((checked(object).*getter_)()));
  }

  /// Does nothing if there is no setter: an assignment that the host lets through is ignored.
  void set([[maybe_unused]] kcos::COSInterface* object,
           [[maybe_unused]] const kxArray* value) const override {
    if constexpr (!std::is_same_v<SetType, Ignore>) {
      T& target = checked(object);
      (target.*setter_)(fromArray<SetType>(value));
    }
  }

  kcos::Enumeration<kcos::COSInterface*> getReferencedObjects(
      kcos::COSInterface* object) const override {
    if constexpr (References<GetType>::kObjects) {
      if (const T* target = findOwner(object)) {
        return References<GetType>::objects((target->*getter_)());
      }
    }
    return makeEnumeration<kcos::COSInterface*, EmptyEnumerationUtil>();
  }

  kcos::Enumeration<const kxArray*> getReferencedArrays(kcos::COSInterface* object) const override {
    if constexpr (References<GetType>::kArrays) {
      if (const T* target = findOwner(object)) {
        return References<GetType>::arrays((target->*getter_)());
      }
    }
    return makeEnumeration<const kxArray*, EmptyEnumerationUtil>();
  }

 private:
  T& checked(const kcos::COSInterface* object) const {
    return *static_cast<T*>(requireInstanceData(object, classKey_));
  }

  /// For the tracer: the native part with this property as a field. Null for an object without
  /// a native part, and for a derived property, which isn't a field and may raise when computed.
  const T* findOwner(const kcos::COSInterface* object) const {
    return object == nullptr || object->isDeleted() || flags() == kDerived
               ? nullptr
               : static_cast<const T*>(object->getInstanceData(classKey_));
  }

  kcos::COSInternedBase classKey_;
  Getter getter_;
  Setter setter_;
};

/// A property that subclasses must define.
class AbstractCosPropertyInfo final : public kcos::COSPropT {
 public:
  AbstractCosPropertyInfo(kcos::COSInternedBase name, kcos::MemberAccess getAccess,
                          kcos::MemberAccess setAccess)
      : COSPropT(name, getAccess, setAccess, kAbstract) {}

  kxArray* get(kcos::COSInterface*) const override { return nullptr; }
  void set(kcos::COSInterface*, const kxArray*) const override {}
  kcos::Enumeration<kcos::COSInterface*> getReferencedObjects(kcos::COSInterface*) const override {
    return makeEnumeration<kcos::COSInterface*, EmptyEnumerationUtil>();
  }
  kcos::Enumeration<const kxArray*> getReferencedArrays(kcos::COSInterface*) const override {
    return makeEnumeration<const kxArray*, EmptyEnumerationUtil>();
  }
};

}  // namespace bigdata::ki::detail
