#pragma once

#include "kcos/class.h"
#include "kcos/interned.h"
#include "ki/KalvexManagedObject.h"
#include "kx/array.h"

/// Calls of a native part to the host side of its own object.
namespace bigdata::lazyeval {

/// The host object that a native part lives in, as a scalar array.
matrix::ArrayPtr selfArray(const ki::KalvexManagedObject& object);

/// Calls the method `name` of the object's run-time class, the object in front of the inputs.
///
/// Result: false, and nothing called, if the class has no such method. Outputs are the caller's.
/// Requires: room for max(nlhs, 1) outputs, all null.
bool callOwnMethod(const ki::KalvexManagedObject& object, kcos::NameRef name,
                   const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs,
                   const kxArray* const* prhs);

/// Asks the object's host side, by a call of the function "createExecutionTasks" on it, for the
/// execution tasks of an operation.
matrix::ArrayPtr callCreateExecutionTasks(const ki::KalvexManagedObject& object,
                                          const kxArray* first, const kxArray* second);

}  // namespace bigdata::lazyeval
