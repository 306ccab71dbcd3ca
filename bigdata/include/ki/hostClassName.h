#pragma once

#include "kcos/interned.h"

namespace bigdata::ki {

/// The full host class name of `T`, which the class states once, as
///
///     static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.FunctionHandle";
template <class T>
constexpr kcos::NameRef hostClassName() {
  static_assert(
      requires { T::kHostClassName; },
      "a managed class states its full host class name as kHostClassName");
  return T::kHostClassName;
}

/// The interned full class name of `T`, looked up once per process.
template <class T>
kcos::COSInternedBase classKey() {
  static const kcos::COSInternedBase key = kcos::internal::makeInterned(hostClassName<T>());
  return key;
}

}  // namespace bigdata::ki
