#pragma once

#include "kcos/class.h"
#include "kcos/interned.h"
#include "ki/KalvexManagedObject.h"
#include "kx/array.h"

/// Calls from a native part to the host side of its own object.
namespace bigdata::lazyeval {

/// The host object of a native part, as a scalar array.
matrix::ArrayPtr selfArray(const ki::KalvexManagedObject& object);

/// Calls the method `name` of the object's run-time class with the object before the inputs.
///
/// Result: false if the class has no such method; nothing is called then. Outputs are the caller's.
/// Requires: room for max(nlhs, 1) outputs, all null.
bool callOwnMethod(const ki::KalvexManagedObject& object, kcos::NameRef name,
                   const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs,
                   const kxArray* const* prhs);

/// Requests the execution tasks of an operation from the object's host side, by calling the
/// function "createExecutionTasks" on it.
matrix::ArrayPtr callCreateExecutionTasks(const ki::KalvexManagedObject& object,
                                          const kxArray* first, const kxArray* second);

}  // namespace bigdata::lazyeval
