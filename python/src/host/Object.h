#pragma once

#include <nanobind/nanobind.h>

#include <cstdint>
#include <string>

#include "Session.h"
#include "kv/host/values.h"

namespace kv::python {

/// A host object in Python: a strong reference.
///
/// Threads: may be dropped on any; all other use is for the session's thread.
class Object {
 public:
  /// `array` is a scalar object array.
  Object(SessionPtr session, host::Value array)
      : session_(std::move(session)), array_(std::move(array)) {}
  ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  Object(Object&&) = default;
  Object& operator=(Object&&) = delete;

  /// A Python wrapper of an object of the current session.
  static nb::object wrap(host::Value array);

  const SessionPtr& session() const { return session_; }
  const kxArray* array() const { return array_.get(); }
  bool isDeleted() const { return identity()->isDeleted(); }
  /// The same for all wrappers of one object.
  const kcos::COSInterface* identity() const;

 private:
  SessionPtr session_;
  host::Value array_;
};

/// Adds the class `Object` to the module.
void bindObject(nb::module_& module);

}  // namespace kv::python
