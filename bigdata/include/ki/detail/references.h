#pragma once

#include <vector>

#include "ki/PropertyPtr.h"
#include "ki/detail/EnumerationUtil.h"

/// The managed objects that a property's value refers to, by the return type of its getter.
namespace bigdata::ki::detail {

template <class GetType>
struct References {
  static constexpr bool kObjects = false;
  static constexpr bool kArrays = false;
};

template <>
struct References<const kxArray*> {
  static constexpr bool kObjects = false;
  static constexpr bool kArrays = true;

  static kcos::Enumeration<const kxArray*> arrays(const kxArray* value) {
    if (value == nullptr) {
      return makeEnumeration<const kxArray*, EmptyEnumerationUtil>();
    }
    return makeEnumeration<const kxArray*, ScalarEnumerationUtil>(value);
  }
};

template <class T>
struct References<const PropertyPtr<T>&> {
  static constexpr bool kObjects = true;
  static constexpr bool kArrays = false;

  static kcos::Enumeration<kcos::COSInterface*> objects(const PropertyPtr<T>& value) {
    if (!value) {
      return makeEnumeration<kcos::COSInterface*, EmptyEnumerationUtil>();
    }
    return makeEnumeration<kcos::COSInterface*, ScalarEnumerationUtil>(value.child().get());
  }
};

template <class T>
struct References<const std::vector<PropertyPtr<T>>&> {
  static constexpr bool kObjects = true;
  static constexpr bool kArrays = false;

  static kcos::Enumeration<kcos::COSInterface*> objects(const std::vector<PropertyPtr<T>>& values) {
    std::vector<kcos::COSInterface*> targets;
    targets.reserve(values.size());
    for (const PropertyPtr<T>& value : values) {
      targets.push_back(value.child());
    }
    return makeEnumeration<kcos::COSInterface*, VectorEnumerationUtil>(std::move(targets));
  }
};

}  // namespace bigdata::ki::detail
