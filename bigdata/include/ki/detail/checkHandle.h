#pragma once

#include "kcos/interface.h"

namespace bigdata::ki::detail {

/// Errors: "KALVEX:class:InvalidHandle", always.
[[noreturn]] void raiseInvalidHandle();

/// Checks a reference to a managed object; every use of one goes through here. A reference with
/// neither native part nor host object is the legal null and passes.
///
/// Errors: "KALVEX:class:InvalidHandle" if the host object is deleted, or has no such native part.
inline void checkHandle(const void* raw, const kcos::COSInterface* interface) {
  if (raw == nullptr && interface == nullptr) {
    return;
  }
  if (raw == nullptr || interface == nullptr || interface->isDeleted()) {
    raiseInvalidHandle();
  }
}

/// The native part of a live host object.
/// Errors: "KALVEX:class:InvalidHandle" for null, a deleted object, one without that native part.
void* requireInstanceData(const kcos::COSInterface* object, kcos::COSInternedBase classKey);

}  // namespace bigdata::ki::detail
