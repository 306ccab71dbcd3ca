#pragma once

#include <concepts>
#include <cstddef>
#include <utility>
#include <vector>

#include "kcos/interface.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyPtr.h"
#include "ki/detail/Conversion.h"
#include "ki/hostClassName.h"

namespace bigdata::ki::detail {

/// A host object from an array, with its native part, which is null if the object was deleted.
struct ManagedElement {
  kcos::COSInterfacePtr object;
  void* raw = nullptr;
};

/// The object in a scalar object array; none for null and for `[]` of class double.
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar " and the class name, and the class
///         of the value.
ManagedElement scalarElement(const kxArray* array, kcos::COSInternedBase className);

/// Number of elements of an object array; 0 for null.
/// Errors: "KALVEX:validateattributes:invalidType" with the class name and the value's class.
std::size_t countElements(const kxArray* array, kcos::COSInternedBase className);

ManagedElement elementAt(const kxArray* array, std::size_t index, kcos::COSInternedBase className);

/// A scalar array that refers to the object; null for null.
ArrayPtr scalarOf(const kcos::COSInterfacePtr& object);

/// An n-by-1 object array.
class ObjectColumn {
 public:
  ObjectColumn(std::size_t rows, kcos::COSInternedBase className);
  void set(std::size_t row, kcos::COSInterface* object);
  ArrayPtr take() && { return std::move(array_); }

 private:
  ArrayPtr array_;
};

template <class T>
KalvexManagedPtr<T> managedPtr(const ManagedElement& element) {
  return {static_cast<T*>(element.raw), element.object};
}

template <class T>
struct Conversion<KalvexManagedPtr<T>> {
  static KalvexManagedPtr<T> fromArray(const kxArray* array) {
    return managedPtr<T>(scalarElement(array, classKey<T>()));
  }
  static ArrayPtr toArray(const KalvexManagedPtr<T>& value) {
    return scalarOf(kcos::COSInterfacePtr(value.interface(), kcos::COSReferenceType::Strong));
  }
};

template <class T>
struct Conversion<PropertyPtr<T>> {
  static ArrayPtr toArray(const PropertyPtr<T>& value) { return scalarOf(value.child()); }
};

template <class T>
struct Conversion<std::vector<KalvexManagedPtr<T>>> {
  static std::vector<KalvexManagedPtr<T>> fromArray(const kxArray* array) {
    const std::size_t count = countElements(array, classKey<T>());
    std::vector<KalvexManagedPtr<T>> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      values.push_back(managedPtr<T>(elementAt(array, i, classKey<T>())));
    }
    return values;
  }
  static ArrayPtr toArray(const std::vector<KalvexManagedPtr<T>>& values) {
    ObjectColumn column(values.size(), classKey<T>());
    for (std::size_t i = 0; i < values.size(); ++i) {
      column.set(i, values[i].interface());
    }
    return std::move(column).take();
  }
};

template <class T>
struct Conversion<std::vector<PropertyPtr<T>>> {
  static ArrayPtr toArray(const std::vector<PropertyPtr<T>>& values) {
    ObjectColumn column(values.size(), classKey<T>());
    for (std::size_t i = 0; i < values.size(); ++i) {
      column.set(i, values[i].child());
    }
    return std::move(column).take();
  }
};

/// How a parameter of type `const T&` is read, where `T` is a managed class: the first object of an
/// object array, checked when it is passed on.
template <class T>
struct ManagedReference {
  KalvexManagedPtr<T> target;
};

template <class T>
struct Conversion<ManagedReference<T>> {
  static ManagedReference<T> fromArray(const kxArray* array) {
    const kcos::COSInternedBase name = classKey<T>();
    if (countElements(array, name) == 0) {
      raiseInvalidInput(name.text(), kxGetClassName(array));
    }
    return {managedPtr<T>(elementAt(array, 0, name))};
  }
};

}  // namespace bigdata::ki::detail
